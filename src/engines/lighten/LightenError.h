#pragma once

#include "ground/SystemError.h"

#include <QString>

namespace nuvrel {

/// Why a file could not be lightened. A file that failed for a reason of the system's (a full disk,
/// a folder that refuses writing) is a FileError instead, thrown as it is.
class LightenError final : public LocalizedError
{
public:
    enum class Kind {
        Unreadable,  ///< a photo that cannot be decoded or encoded, a PDF that cannot be opened
        Unsupported, ///< kept for its message: every other file goes to the zip-or-copy route
        VideoFailed, ///< no size of the target could be made from this video
        TooLarge,    ///< a picture declaring more pixels than any camera takes: refused before decoding
        Protected,   ///< a PDF locked by a password
        NoVideoTool, ///< ffmpeg is not installed
        Cancelled,
    };

    explicit LightenError(Kind kind)
        : m_kind(kind)
    {}

    Kind kind() const { return m_kind; }
    QString message() const override;
    const char* what() const noexcept override;

    friend bool operator==(const LightenError& a, const LightenError& b) { return a.m_kind == b.m_kind; }

private:
    Kind m_kind;
};

} // namespace nuvrel
