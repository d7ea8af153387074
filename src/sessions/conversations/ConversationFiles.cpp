#include "sessions/conversations/ConversationFiles.h"

#include "engines/conversations/ConversationError.h"
#include "l10n/L.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>

namespace nuvrel::ConversationFiles {

QString folder()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation))
        .filePath(QStringLiteral("Nuvrel/Conversations"));
}

QString fileName(const QString& title)
{
    constexpr qsizetype maxCodePoints = 80;
    const QString forbidden = QStringLiteral("/\\:*?\"<>|");
    QList<char32_t> kept;
    for (const char32_t c : title.toUcs4()) {
        // Printable characters, and the joiner that holds emoji sequences together.
        if (QChar::isSpace(c))
            kept.append(char32_t(' '));
        else if ((QChar::isPrint(c) || c == 0x200D) && !(c < 0x80 && forbidden.contains(QChar(c))))
            kept.append(c);
    }
    QString name = QString::fromUcs4(kept.constData(), std::min(kept.size(), maxCodePoints)).simplified();
    while (name.startsWith(u'.'))
        name.remove(0, 1);
    if (name.trimmed().isEmpty())
        name = L("Conversation");
    return name + QStringLiteral(".pdf");
}

void SavedBatch::record(const std::function<void()>& save)
{
    try {
        save();
        ++saved;
    } catch (const ConversationError& error) {
        ++(error.kind() == ConversationError::Kind::Empty ? empty : failed);
    } catch (const std::exception&) {
        ++failed;
    }
}

QString SavedBatch::summary() const
{
    const QLocale numbers = Localizer::locale();
    QString line = stopped ? LN("Enregistrement arrêté : %@ conversation(s) enregistrées en PDF, gardées", saved,
                                numbers.toString(saved))
                           : LN("%@ conversation(s) enregistrées en PDF", saved, numbers.toString(saved));
    if (empty > 0)
        line += LN(" · %@ vide(s) ignorée(s)", empty, numbers.toString(empty));
    if (failed > 0)
        line += L(" · %@ en échec", numbers.toString(failed));
    line += L(". Chaque PDF a son fichier d'empreinte à côté de lui, dans %@.", QDir::toNativeSeparators(folder));
    return line;
}

QList<Saved> savedIn(const QString& folder)
{
    QList<Saved> saved;
    const QFileInfoList files =
        QDir(folder).entryInfoList({QStringLiteral("*.pdf")}, QDir::Files | QDir::Readable, QDir::Time);
    for (const QFileInfo& file : files) {
        if (file.isSymLink())
            continue; // a link placed there leads elsewhere: not one of ours
        saved.append({file.absoluteFilePath(), file.completeBaseName(), file.lastModified(), file.size(),
                      ConversationPDF::verify(file.absoluteFilePath())});
    }
    // Newest first, and in a stable order when two share a second.
    std::stable_sort(saved.begin(), saved.end(), [](const Saved& a, const Saved& b) { return a.made > b.made; });
    return saved;
}

} // namespace nuvrel::ConversationFiles
