#include "ground/SystemError.h"

#include "l10n/L.h"

#include <QDir>

#include <cerrno>

namespace nuvrel {

SystemErrorKind systemErrorKind(int errnoValue)
{
    switch (errnoValue) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return SystemErrorKind::NoSpace;
    case EACCES:
    case EPERM: return SystemErrorKind::NoPermission;
    case EROFS: return SystemErrorKind::ReadOnly;
    case ENOENT:
    case ENOTDIR: return SystemErrorKind::Missing;
    case ENAMETOOLONG: return SystemErrorKind::TooLong;
    default: return SystemErrorKind::Other;
    }
}

QString FileError::message() const
{
    const QString path = QDir::toNativeSeparators(m_path);
    switch (m_kind) {
    case SystemErrorKind::NoSpace: return L("Plus assez de place sur le disque pour écrire %@.", path);
    case SystemErrorKind::NoPermission:
        return m_operation == Operation::Write ? L("Nuvrel n'a pas le droit d'écrire %@.", path)
                                               : L("Nuvrel n'a pas le droit de lire %@.", path);
    case SystemErrorKind::ReadOnly: return L("Le disque de %@ est en lecture seule.", path);
    case SystemErrorKind::Missing: return L("Introuvable : %@", path);
    case SystemErrorKind::TooLong: return L("Nom trop long pour le disque : %@", path);
    case SystemErrorKind::Other: break;
    }
    return m_operation == Operation::Write ? L("Impossible d'écrire %@.", path) : L("Impossible de lire %@.", path);
}

const char* FileError::what() const noexcept
{
    return m_operation == Operation::Write ? "cannot write a file" : "cannot read a file";
}

} // namespace nuvrel
