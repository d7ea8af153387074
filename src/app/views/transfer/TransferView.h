#pragma once

#include "models/transfer/TransferModel.h"

#include <QWidget>

#include <functional>

class QComboBox;
class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTreeWidget;

namespace nuvrel {

class QrCodeView;

/// « Mac vers iPhone »: the nearby share's card (AirDrop, or KDE Connect on Linux), and the local
/// Wi-Fi card: files and folders chosen or dropped, "Démarrer l'envoi", then the QR code large with
/// the address under it, what is served, the downloads as they go, "Changer de fichiers" and
/// "Arrêter". The view only binds to its model.
class TransferView final : public QWidget
{
    Q_OBJECT

public:
    explicit TransferView(TransferModel& model, QWidget* parent = nullptr);

    void retranslate();

    /// Chooses files (or a folder); dialogs unless a test sets others.
    void setFilePicker(std::function<QStringList()> picker) { m_pickFiles = std::move(picker); }
    void setFolderPicker(std::function<QString()> picker) { m_pickFolder = std::move(picker); }

    // For tests and the keyboard.
    QPushButton* chooseFilesButton() const { return m_chooseFiles; }
    QPushButton* chooseFolderButton() const { return m_chooseFolder; }
    QPushButton* startButton() const { return m_start; }
    QPushButton* changeButton() const { return m_change; }
    QPushButton* stopButton() const { return m_stop; }
    QPushButton* nearbyButton() const { return m_nearbySend; }
    QComboBox* addressChoice() const { return m_address; }
    QListWidget* chosenList() const { return m_chosen; }
    QTreeWidget* downloadList() const { return m_downloads; }
    QrCodeView* qrCode() const { return m_qr; }
    QLabel* urlLabel() const { return m_url; }
    QLabel* statusLabel() const { return m_status; }
    QLabel* nearbyTextLabel() const { return m_nearbyText; }

protected:
    void showEvent(QShowEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void render();
    void renderItems();
    void renderAddresses();
    void renderNearby();
    void renderDownloads();
    void pickFiles();
    void pickFolder();

    TransferModel& m_model;
    QLabel* m_title;
    QLabel* m_intro;
    // The nearby share's card.
    QLabel* m_nearbyTitle;
    QLabel* m_nearbyText;
    QComboBox* m_nearbyDevice;
    QPushButton* m_nearbySend;
    // The Wi-Fi card: choosing, then serving.
    QLabel* m_wifiTitle;
    QLabel* m_wifiText;
    QStackedWidget* m_wifiPages;
    QListWidget* m_chosen;
    QLabel* m_dropHint;
    QPushButton* m_chooseFiles;
    QPushButton* m_chooseFolder;
    QLabel* m_addressLabel;
    QComboBox* m_address;
    QPushButton* m_start;
    QProgressBar* m_preparing;
    QrCodeView* m_qr;
    QLabel* m_instructions;
    QLabel* m_url;
    QLabel* m_servedTitle;
    QListWidget* m_served;
    QLabel* m_downloadsTitle;
    QTreeWidget* m_downloads;
    QPushButton* m_change;
    QPushButton* m_stop;
    QLabel* m_status;
    std::function<QStringList()> m_pickFiles;
    std::function<QString()> m_pickFolder;
};

} // namespace nuvrel
