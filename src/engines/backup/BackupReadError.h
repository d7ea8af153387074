#pragma once

#include "ground/SystemError.h"

#include <QString>

#include <exception>

namespace nuvrel {

/// Why a backup, or one file of it, could not be read. Thrown by IPhoneBackupReader; the caller shows
/// message(), which is localised when it is asked for.
class BackupReadError final : public LocalizedError
{
public:
    enum class Kind { Unreadable, NeedsPassword, WrongPassword, Unsupported, WriteFailed, Cancelled, Damaged };
    /// The part of the backup an Unreadable or Damaged error is about.
    enum class Subject {
        InfoPlist,
        Index, ///< the file list of any layout: neither Manifest.db nor Manifest.mbdb is there
        ManifestDb,
        ManifestMbdb,
        FileList,
        MissingFile, ///< the stored copy of a file
        Decryption,
        MissingFileKey,
        FileKey,
        EncryptedLength,
        KeyBag,
        EncryptionRecord,
        ManifestKey,
    };

    /// The system would not give the file: `cause` says why (missing, refused…). Only a refusal sends
    /// the user to the privacy settings.
    static BackupReadError unreadable(Subject subject, SystemErrorKind cause = SystemErrorKind::Other)
    {
        BackupReadError error(Kind::Unreadable, subject, {});
        error.m_systemKind = cause;
        return error;
    }
    static BackupReadError needsPassword() { return BackupReadError(Kind::NeedsPassword, {}, {}); }
    /// The backup holds data that cannot be right: an encrypted copy whose length does not fit its
    /// recorded size, say. `subject` names the part.
    static BackupReadError damaged(Subject subject) { return BackupReadError(Kind::Damaged, subject, {}); }
    static BackupReadError wrongPassword() { return BackupReadError(Kind::WrongPassword, {}, {}); }
    static BackupReadError unsupported() { return BackupReadError(Kind::Unsupported, {}, {}); }
    /// Writing an extracted file failed (full disk, no permission); `path` is the file.
    static BackupReadError writeFailed(const QString& path, SystemErrorKind why = SystemErrorKind::Other)
    {
        BackupReadError error(Kind::WriteFailed, {}, path);
        error.m_systemKind = why;
        return error;
    }
    static BackupReadError writeFailed(const FileError& error) { return writeFailed(error.path(), error.kind()); }
    /// An Info.plist, Manifest.plist or stored copy that could not be opened: errno says why.
    static BackupReadError openFailed(Subject subject, int errnoValue)
    {
        return unreadable(subject, systemErrorKind(errnoValue));
    }
    /// The caller asked the work to stop (the explorer closed while a file was being copied).
    static BackupReadError cancelled() { return BackupReadError(Kind::Cancelled, {}, {}); }

    Kind kind() const { return m_kind; }
    Subject subject() const { return m_subject; }
    QString path() const { return m_path; }
    /// Why a read or a write failed, as far as the system said.
    SystemErrorKind systemKind() const { return m_systemKind; }

    /// The text for the user, in the language in force.
    QString message() const override;
    /// A fixed English description, for logs and test output.
    const char* what() const noexcept override;

    friend bool operator==(const BackupReadError& a, const BackupReadError& b)
    {
        const bool hasSubject = a.m_kind == Kind::Unreadable || a.m_kind == Kind::Damaged;
        return a.m_kind == b.m_kind && (!hasSubject || a.m_subject == b.m_subject) && a.m_path == b.m_path &&
               a.m_systemKind == b.m_systemKind;
    }

private:
    BackupReadError(Kind kind, Subject subject, QString path)
        : m_kind(kind)
        , m_subject(subject)
        , m_path(std::move(path))
    {}

    Kind m_kind;
    Subject m_subject;
    QString m_path;
    SystemErrorKind m_systemKind = SystemErrorKind::Other;
};

} // namespace nuvrel
