#pragma once

#include <QString>
#include <QStringList>
#include <QTextStream>

#include <optional>

namespace nuvrel::cli {

/// The process exit codes, documented in --help.
enum ExitCode : int {
    Found = 0,
    NothingFound = 1,
    AccessRefused = 2,
    BadUsage = 3,
    NoSuchBackup = 4,
    PasswordProblem = 5,
    BackupUnreadable = 6,
    SomeFilesFailed = 7,
    PdfModified = 8,
    ServeFailed = 9,
    CopyStopped = 10,
};

/// The parsed command line: one command word and its options.
struct CommandLine
{
    QString command;
    QStringList arguments; ///< the words after the command
    std::optional<QString> root;
    std::optional<QString> language;
    std::optional<QString> domain;
    std::optional<QString> pathPrefix;
    std::optional<QString> destination; ///< --to: a folder for extract, the last day for the chat commands
    std::optional<QString> from;        ///< --from: the first day of a conversation kept; the folder photo-import reads
    std::optional<QString> owner;       ///< --owner: the sender whose messages are the owner's
    std::optional<QString> source;
    std::optional<QString> format;
    std::optional<QString> output;     ///< -o
    std::optional<QString> exportFile; ///< --export
    std::optional<QString> target;     ///< --target: the channel a lightened file is for
    std::optional<QString> address;    ///< --address: where serve listens
    std::optional<QString> port;       ///< --port: the port serve listens on
    std::optional<QString> since;      ///< --since: the first day of the photos imported
    std::optional<QString> until;      ///< --until: the last day of the photos imported
    bool photos = false;
    bool videos = false; ///< --videos: photo-import takes the videos (with --photos, both)
    bool device = false; ///< --device: photo-import reads the phone on the cable
    bool passwordFromStdin = false;
    bool remember = false;
    bool json = false;
    bool force = false;
    bool keepLocation = false; ///< --keep-location
    bool keepHeic = false;     ///< --keep-heic
    bool similar = false;      ///< --similar: similar photos too
    bool trash = false;        ///< --trash: the extra copies go to the trash…
    bool yes = false;          ///< --yes: …when this confirms it
    bool help = false;
    bool version = false;

    /// Parses the arguments after the program name; on a mistake, `error` holds a localised message.
    static CommandLine parse(const QStringList& arguments, QString& error);
};

/// The targets of the lighten command, as they are typed: "whatsapp|telegram|…".
QString lightenTargetChoices();

/// Prints the localised help.
void printHelp(QTextStream& out, const QString& program);

} // namespace nuvrel::cli
