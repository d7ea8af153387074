#pragma once

#include "engines/transfer/HttpAnswer.h"

#include <QStringList>
#include <QTemporaryDir>

#include <atomic>
#include <functional>
#include <memory>

namespace nuvrel {

/// The chosen items made ready to serve: a plain file as it is, a folder as one zip archive (a phone's
/// browser downloads one file at a time), written in a private folder of this run that goes with it.
class TransferPrep final
{
public:
    /// Bytes put in archives so far, of all to put.
    using Progress = std::function<void(qint64 done, qint64 total)>;

    TransferPrep();
    ~TransferPrep();
    TransferPrep(const TransferPrep&) = delete;
    TransferPrep& operator=(const TransferPrep&) = delete;

    struct Result
    {
        QList<ServedFile> files; ///< in the order chosen
        QStringList failed;      ///< folders that could not be archived, and items that are neither
        bool cancelled = false;
    };
    /// Blocks while folders are archived: call it off the GUI thread. Links are never followed, in
    /// the list or inside a folder.
    Result prepare(const QStringList& items, const Progress& progress = {}, const std::atomic<bool>* cancel = nullptr);

    /// The private folder the archives are written in.
    QString folder() const { return m_folder.path(); }

private:
    QTemporaryDir m_folder;
};

} // namespace nuvrel
