#include "cli/ChatsCommand.h"

#include "cli/TextTable.h"
#include "engines/conversations/ConversationError.h"
#include "engines/conversations/ConversationPdf.h"
#include "engines/conversations/ConversationSource.h"
#include "l10n/L.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
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

// The database: of the kind asked for, else told by its name (WhatsApp's store, or Messages).
std::unique_ptr<ConversationSource> sourceOf(const CommandLine& line, const QString& file, QTextStream& err)
{
    if (!line.source) {
        return QFileInfo(file).fileName().startsWith(QLatin1StringView("ChatStorage"))
                   ? ConversationSource::whatsAppDatabase(file)
                   : ConversationSource::messagesDatabase(file);
    }
    const std::optional<ConvSource> source = convSourceFromRawValue(*line.source);
    if (source == ConvSource::Messages)
        return ConversationSource::messagesDatabase(file);
    if (source == ConvSource::WhatsApp)
        return ConversationSource::whatsAppDatabase(file);
    err << L("Valeur inconnue pour %@ : %@", QStringLiteral("--source"), *line.source) << '\n';
    return nullptr;
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

// The conversation named on the command line: DB ID, or --export FILE.txt.
struct Loaded
{
    std::optional<ChatTranscript> transcript;
    QString sourceLabel;
    int exitCode = Found;
};

Loaded loadTranscript(const CommandLine& line, QTextStream& err)
{
    if (line.exportFile) {
        try {
            const auto source = ConversationSource::whatsAppExport(*line.exportFile);
            return {source->transcript(source->listChats().constFirst()), title(ConvSource::WhatsApp), Found};
        } catch (const ConversationError& error) {
            err << escapedControls(error.message()) << '\n';
            return {std::nullopt, {}, exitCodeFor(error)};
        }
    }
    if (line.arguments.size() != 2) {
        err << L("Précise une base de conversations et le numéro d'une conversation.") << '\n';
        return {std::nullopt, {}, BadUsage};
    }
    const QString file = line.arguments[0];
    const std::unique_ptr<ConversationSource> source = sourceOf(line, file, err);
    if (!source)
        return {std::nullopt, {}, BadUsage};
    bool isNumber = false;
    const qint64 id = line.arguments[1].toLongLong(&isNumber);
    try {
        // The listing gives the conversation's name, which stands for senders without a handle.
        const QList<MessagesChatInfo> chats = source->listChats();
        const auto chat =
            std::find_if(chats.cbegin(), chats.cend(), [id](const MessagesChatInfo& c) { return c.id == id; });
        if (!isNumber || chat == chats.cend()) {
            err << L("Conversation introuvable : %@", line.arguments[1]) << '\n';
            return {std::nullopt, {}, NothingFound};
        }
        return {source->transcript(*chat), title(source->kind()), Found};
    } catch (const ConversationError& error) {
        err << escapedControls(error.message()) << '\n';
        return {std::nullopt, {}, exitCodeFor(error)};
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
    const QString file = line.arguments.front();
    const std::unique_ptr<ConversationSource> source = sourceOf(line, file, err);
    if (!source)
        return BadUsage;
    try {
        const QList<MessagesChatInfo> chats = source->listChats();
        if (line.json) {
            QJsonArray list;
            for (const MessagesChatInfo& chat : chats)
                list.append(QJsonObject{{QStringLiteral("id"), chat.id},
                                        {QStringLiteral("title"), chat.title},
                                        {QStringLiteral("count"), chat.count},
                                        {QStringLiteral("last"), chat.last.toUTC().toString(Qt::ISODate)}});
            out << QString::fromUtf8(QJsonDocument(list).toJson(QJsonDocument::Indented));
            return chats.isEmpty() ? NothingFound : Found;
        }
        if (chats.isEmpty()) {
            err << L("Aucune conversation trouvée dans cette base.") << '\n';
            return NothingFound;
        }
        TextTable table;
        table.addRow({L("N°"), L("Conversation"), L("Messages"), L("Dernier message")});
        for (const MessagesChatInfo& chat : chats)
            table.addRow({QString::number(chat.id), chat.title, QString::number(chat.count),
                          Localizer::formatDateTime(chat.last)});
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
