#include "cli/ChatsCommand.h"

#include "cli/TextTable.h"
#include "engines/conversations/ChatFilters.h"
#include "engines/conversations/ConversationError.h"
#include "engines/conversations/ConversationPdf.h"
#include "engines/conversations/ConversationSource.h"
#include "engines/conversations/WhatsAppArchive.h"
#include "ground/RegularFile.h"
#include "l10n/L.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace nuvrel::cli {

namespace {

int exitCodeFor(const ConversationError& error)
{
    switch (error.kind()) {
    case ConversationError::Kind::NoAccess: return AccessRefused;
    case ConversationError::Kind::Empty: return NothingFound;
    case ConversationError::Kind::File:
    case ConversationError::Kind::Unreadable:
    case ConversationError::Kind::TooLarge:
    case ConversationError::Kind::SuspectArchive: return BackupUnreadable;
    }
    return BackupUnreadable;
}

// Pasted text comes from a file or, for "-", from the standard input; either way, no more than a
// conversation anyone pastes.
constexpr qint64 maxPasted = qint64(64) * 1024 * 1024;

QString pastedText(const QString& file)
{
    QFile input;
    if (file == u"-") {
        if (!input.open(stdin, QIODevice::ReadOnly))
            throw ConversationError::unreadable();
    } else if (!openRegularFile(input, file, {maxPasted})) {
        if (errno == EFBIG)
            throw ConversationError::tooLarge(file, maxPasted);
        throw ConversationError::file(FileError::fromErrno(FileError::Operation::Read, errno, file));
    }
    const QByteArray bytes = input.read(maxPasted + 1);
    if (bytes.size() > maxPasted)
        throw ConversationError::tooLarge(file, maxPasted);
    return QString::fromUtf8(bytes);
}

// The conversations of `file`: of the kind asked for, else told by the file (its name, or a zip
// archive's first bytes). Null, with the reason said, for an unknown kind. Throws ConversationError.
std::unique_ptr<ConversationSource> sourceOf(const CommandLine& line, const QString& file, QTextStream& err)
{
    if (!line.source)
        return ConversationSource::forFile(file);
    const QString& kind = *line.source;
    if (kind == u"messages")
        return ConversationSource::messagesDatabase(file);
    if (kind == u"whatsapp")
        return ConversationSource::whatsAppDatabase(file);
    if (kind == u"telegram")
        return ConversationSource::telegramExport(file);
    if (kind == u"whatsapp-export")
        return WhatsAppArchive::looksLikeZip(file) ? ConversationSource::whatsAppArchive(file)
                                                   : ConversationSource::whatsAppExport(file);
    if (kind == u"pasted")
        return ConversationSource::pastedText(pastedText(file));
    err << L("Valeur inconnue pour %@ : %@", QStringLiteral("--source"), kind) << '\n';
    return nullptr;
}

// --from and --to, as local days; nothing, with the reason said, when one is not a date.
std::optional<ChatPeriod> periodOf(const CommandLine& line, QTextStream& err)
{
    QDate days[2];
    const std::pair<const char*, const std::optional<QString>*> options[] = {{"--from", &line.from},
                                                                             {"--to", &line.destination}};
    for (int i = 0; i < 2; ++i) {
        const std::optional<QString>& text = *options[i].second;
        if (!text)
            continue;
        days[i] = QDate::fromString(*text, Qt::ISODate);
        if (!days[i].isValid()) {
            err << L("Date invalide pour %@ : %@ (attendue sous la forme %@).", QString::fromLatin1(options[i].first),
                     *text, L("AAAA-MM-JJ"))
                << '\n';
            return std::nullopt;
        }
    }
    if (days[0].isValid() && days[1].isValid() && days[0] > days[1]) {
        err << L("La période finit avant de commencer : %@ est après %@.", *line.from, *line.destination) << '\n';
        return std::nullopt;
    }
    if (!days[0].isValid() && !days[1].isValid())
        return ChatPeriod();
    return ChatPeriod::localDays(days[0], days[1]);
}

// Written message by message: a whole document built first would hold many times the conversation.
void printTranscript(const ChatTranscript& transcript, bool json, QTextStream& out)
{
    if (json) {
        const QString owner = ownerName();
        out << "{\n    \"title\": " << jsonQuoted(transcript.title)
            << ",\n    \"undatedLines\": " << transcript.undatedLines << ",\n    \"messages\": [";
        bool first = true;
        for (const ChatMessage& message : transcript.messages) {
            out << (std::exchange(first, false) ? "\n" : ",\n") << "        {\"date\": "
                << (message.date.isValid() ? jsonQuoted(message.date.toUTC().toString(Qt::ISODate))
                                           : QStringLiteral("null"))
                << ", \"sender\": " << jsonQuoted(message.sender)
                << ", \"outgoing\": " << (message.sender == owner ? "true" : "false")
                << ", \"text\": " << jsonQuoted(message.text) << '}';
        }
        out << (first ? "]\n}\n" : "\n    ]\n}\n");
        return;
    }
    out << escapedControls(transcript.title) << "\n\n";
    const QString unknown = L("date inconnue");
    for (const ChatMessage& message : transcript.messages) {
        QString text = escapedControls(message.text, true);
        text.replace(u'\n', QStringLiteral("\n    "));
        // "Ana : texte" in French, "Ana: text" in English: the separator is the language's own.
        out << (message.date.isValid() ? Localizer::formatDateTime(message.date) : unknown) << "  "
            << L("%@ : %@", escapedControls(message.sender), text) << '\n';
    }
}

// Lines an export held without a readable date are in the conversation, as text: say so.
void warnUndated(const ChatTranscript& transcript, QTextStream& err)
{
    if (transcript.undatedLines > 0)
        err << L("Lignes à la date illisible, gardées telles quelles dans le message précédent : %@",
                 transcript.undatedLines)
            << '\n';
}

bool wantsJson(const CommandLine& line, QTextStream& err, bool* ok)
{
    *ok = true;
    if (!line.format || *line.format == QLatin1StringView("text"))
        return line.json;
    if (*line.format == QLatin1StringView("json"))
        return true;
    err << L("Valeur inconnue pour %@ : %@", QStringLiteral("--format"), *line.format) << '\n';
    *ok = false;
    return false;
}

// The conversation named on the command line (a file and its number, which a file of one conversation
// may leave out, or --export FILE.txt), its owner chosen and its period kept.
struct Loaded
{
    std::optional<ChatTranscript> transcript;
    QString sourceLabel;
    int exitCode = Found;
    /// Kept while the transcript is used: the pictures of an export live in its work folder.
    std::shared_ptr<ConversationSource> source;
};

Loaded failed(int exitCode)
{
    Loaded loaded;
    loaded.exitCode = exitCode;
    return loaded;
}

Loaded loadTranscript(const CommandLine& line, QTextStream& err)
{
    const std::optional<ChatPeriod> period = periodOf(line, err);
    if (!period)
        return failed(BadUsage);
    if (!line.exportFile && (line.arguments.isEmpty() || line.arguments.size() > 2)) {
        err << L("Précise une base de conversations et le numéro d'une conversation.") << '\n';
        return failed(BadUsage);
    }
    try {
        std::shared_ptr<ConversationSource> source = line.exportFile
                                                         ? ConversationSource::whatsAppExport(*line.exportFile)
                                                         : sourceOf(line, line.arguments[0], err);
        if (!source)
            return failed(BadUsage);
        // The listing gives the conversation's name, which stands for senders without a handle.
        const QList<MessagesChatInfo> chats = source->listChats();
        const QString wanted = line.exportFile ? QStringLiteral("1") : line.arguments.value(1);
        bool isNumber = wanted.isEmpty();
        const qint64 id = wanted.isEmpty() ? (chats.size() == 1 ? chats[0].id : -1) : wanted.toLongLong(&isNumber);
        const auto chat =
            std::find_if(chats.cbegin(), chats.cend(), [id](const MessagesChatInfo& c) { return c.id == id; });
        if (wanted.isEmpty() && chats.size() > 1) {
            err << L("Précise une base de conversations et le numéro d'une conversation.") << '\n';
            return failed(BadUsage);
        }
        if (!isNumber || chat == chats.cend()) {
            err << L("Conversation introuvable : %@", wanted.isEmpty() ? QStringLiteral("1") : wanted) << '\n';
            return failed(NothingFound);
        }
        ChatTranscript transcript = source->transcript(*chat);
        if (line.owner) {
            const QStringList senders = sendersOf(transcript);
            if (!senders.contains(*line.owner)) {
                err << L("Personne n'écrit sous le nom « %@ » dans cette conversation. Noms possibles : %@.",
                         *line.owner, senders.join(QStringLiteral(", ")))
                    << '\n';
                return failed(BadUsage);
            }
            transcript = withOwner(std::move(transcript), *line.owner);
        }
        return {period->apply(std::move(transcript)), source->label(), Found, source};
    } catch (const ConversationError& error) {
        err << escapedControls(error.message()) << '\n';
        return failed(exitCodeFor(error));
    }
}

} // namespace

int runChats(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    if (line.arguments.size() != 1) {
        err << L("Précise une base de conversations : %@.", QStringLiteral("sms.db, chat.db, ChatStorage.sqlite"))
            << '\n';
        return BadUsage;
    }
    const std::optional<ChatPeriod> period = periodOf(line, err);
    if (!period)
        return BadUsage;
    try {
        const std::unique_ptr<ConversationSource> source = sourceOf(line, line.arguments.front(), err);
        if (!source)
            return BadUsage;
        QList<MessagesChatInfo> chats = source->listChats();
        if (!period->isEverything()) {
            // Counted again within the period: each conversation is read, and those left empty go.
            QList<MessagesChatInfo> kept;
            for (MessagesChatInfo chat : std::as_const(chats)) {
                try {
                    const ChatTranscript inside = period->apply(source->transcript(chat));
                    chat.count = inside.messages.size();
                    chat.last = inside.messages.constLast().date;
                    kept.append(chat);
                } catch (const ConversationError& error) {
                    if (error.kind() != ConversationError::Kind::Empty)
                        throw;
                }
            }
            chats = kept;
        }
        if (line.json) {
            QJsonArray list;
            for (const MessagesChatInfo& chat : std::as_const(chats))
                list.append(QJsonObject{
                    {QStringLiteral("id"), chat.id},
                    {QStringLiteral("title"), chat.title},
                    {QStringLiteral("count"), chat.count},
                    {QStringLiteral("last"),
                     chat.last.isValid() ? QJsonValue(chat.last.toUTC().toString(Qt::ISODate)) : QJsonValue()}});
            out << QString::fromUtf8(QJsonDocument(list).toJson(QJsonDocument::Indented));
            return chats.isEmpty() ? NothingFound : Found;
        }
        if (chats.isEmpty()) {
            err << (period->isEverything() ? L("Aucune conversation trouvée dans cette base.")
                                           : ConversationError::empty().message())
                << '\n';
            return NothingFound;
        }
        TextTable table;
        table.addRow({L("N°"), L("Conversation"), L("Messages"), L("Dernier message")});
        for (const MessagesChatInfo& chat : std::as_const(chats))
            table.addRow({QString::number(chat.id), escapedControls(chat.title), QString::number(chat.count),
                          chat.last.isValid() ? Localizer::formatDateTime(chat.last) : L("date inconnue")});
        table.print(out);
        return Found;
    } catch (const ConversationError& error) {
        err << escapedControls(error.message()) << '\n';
        return exitCodeFor(error);
    }
}

int runChat(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    bool ok = false;
    const bool json = wantsJson(line, err, &ok);
    if (!ok)
        return BadUsage;
    const Loaded loaded = loadTranscript(line, err);
    if (!loaded.transcript)
        return loaded.exitCode;
    printTranscript(*loaded.transcript, json, out);
    warnUndated(*loaded.transcript, err);
    return Found;
}

int runChatPdf(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    if (!line.output) {
        err << L("L'option %@ attend une valeur.", QStringLiteral("-o")) << '\n';
        return BadUsage;
    }
    // The output must not take the place of what it is made from, nor its side file.
    const QString source = line.exportFile ? *line.exportFile : line.arguments.value(0);
    const QString sourcePath = QFileInfo(source).canonicalFilePath();
    for (const QString& written : {*line.output, ConversationPDF::sideFilePath(*line.output)}) {
        if (!sourcePath.isEmpty() && QFileInfo(written).canonicalFilePath() == sourcePath) {
            err << L("Choisis un autre nom pour le PDF : %@ est le fichier de la conversation.", source) << '\n';
            return BadUsage;
        }
    }
    const Loaded loaded = loadTranscript(line, err);
    if (!loaded.transcript)
        return loaded.exitCode;
    try {
        const ConversationPDF::Result result =
            ConversationPDF::build(*line.output, *loaded.transcript, loaded.sourceLabel, line.force);
        warnUndated(*loaded.transcript, err);
        if (line.json) {
            out << QString::fromUtf8(
                QJsonDocument(
                    QJsonObject{{QStringLiteral("pdf"), QDir::cleanPath(QFileInfo(result.pdf).absoluteFilePath())},
                                {QStringLiteral("pdfFingerprint"), result.pdfFingerprint},
                                {QStringLiteral("contentFingerprint"), result.contentFingerprint},
                                {QStringLiteral("sideFile"), result.sideFile},
                                {QStringLiteral("pages"), result.pages}})
                    .toJson(QJsonDocument::Indented));
            return Found;
        }
        out << QDir::cleanPath(QFileInfo(result.pdf).absoluteFilePath()) << '\n'
            << L("Empreinte SHA-256 du PDF :") << ' ' << result.pdfFingerprint << '\n'
            << L("Elle est aussi enregistrée dans un petit fichier « .empreinte.txt » à côté du PDF. Garde les deux "
                 "ensemble.")
            << '\n';
        return Found;
    } catch (const ConversationPDF::Error& error) {
        err << escapedControls(error.message()) << '\n';
        return SomeFilesFailed;
    }
}

int runVerify(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    if (line.arguments.size() != 1) {
        err << L("Précise le PDF à vérifier.") << '\n';
        return BadUsage;
    }
    const QString pdfPath = line.arguments.front();
    const QString sideName = QFileInfo(ConversationPDF::sideFilePath(pdfPath)).fileName();
    const ConversationPDF::Verification verdict = ConversationPDF::verify(pdfPath);
    if (line.json) {
        const auto name = [verdict] {
            switch (verdict) {
            case ConversationPDF::Verification::Intact: return QStringLiteral("intact");
            case ConversationPDF::Verification::Modified: return QStringLiteral("modified");
            case ConversationPDF::Verification::PdfUnreadable: return QStringLiteral("pdfUnreadable");
            case ConversationPDF::Verification::NoSideFile: return QStringLiteral("noSideFile");
            case ConversationPDF::Verification::SideFileUnreadable: return QStringLiteral("sideFileUnreadable");
            }
            return QString();
        };
        out << QString::fromUtf8(
            QJsonDocument(QJsonObject{{QStringLiteral("pdf"), pdfPath}, {QStringLiteral("result"), name()}})
                .toJson(QJsonDocument::Indented));
        return verdict == ConversationPDF::Verification::Intact     ? Found
               : verdict == ConversationPDF::Verification::Modified ? PdfModified
                                                                    : BackupUnreadable;
    }
    switch (verdict) {
    case ConversationPDF::Verification::Intact:
        out << L("Le PDF est intact : son empreinte SHA-256 est celle que « %@ » a enregistrée.", sideName) << '\n';
        return Found;
    case ConversationPDF::Verification::Modified:
        out << L("Le PDF a été modifié : son empreinte SHA-256 n'est plus celle que « %@ » a enregistrée.", sideName)
            << '\n';
        return PdfModified;
    case ConversationPDF::Verification::PdfUnreadable:
        err << L("Impossible de lire ce fichier.") << " (" << pdfPath << ")\n";
        return BackupUnreadable;
    case ConversationPDF::Verification::SideFileUnreadable:
        err << L("Le fichier d'empreinte « %@ » ne contient aucune empreinte SHA-256 : il ne permet pas de vérifier le "
                 "PDF.",
                 sideName)
            << '\n';
        return BackupUnreadable;
    case ConversationPDF::Verification::NoSideFile:
        err << L("Fichier d'empreinte introuvable : %@", ConversationPDF::sideFilePath(pdfPath)) << '\n';
        return BackupUnreadable;
    }
    return BackupUnreadable;
}

int runChatExport(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    bool ok = false;
    const bool json = wantsJson(line, err, &ok);
    if (!ok)
        return BadUsage;
    if (line.arguments.size() != 1) {
        err << L("Précise le fichier %@ exporté par WhatsApp.", QStringLiteral(".txt")) << '\n';
        return BadUsage;
    }
    std::optional<ChatTranscript> transcript;
    try {
        const auto source = ConversationSource::whatsAppExport(line.arguments.front());
        transcript = source->transcript(source->listChats().constFirst());
    } catch (const ConversationError& error) {
        err << escapedControls(error.message()) << '\n';
        return exitCodeFor(error);
    }
    printTranscript(*transcript, json, out);
    warnUndated(*transcript, err);
    return Found;
}

} // namespace nuvrel::cli
