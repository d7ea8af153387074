#pragma once

#include "platform/PhoneCamera.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

namespace nuvrel {

/// What became of one file copied out of a source.
struct FileCopyResult
{
    enum class Kind {
        Copied,
        Failed,            ///< this file only; `reason` says why
        DestinationFailed, ///< the destination refused a write: no later file would fare better
        Aborted,           ///< the program is quitting
    };
    Kind kind = Kind::Copied;
    QString reason;
    bool bySource = false; ///< the source itself reported the failure
    bool timedOut = false; ///< the source stayed silent past the watchdog
    QString savedAs;       ///< the file's path, once copied
};

/// Copies one file of a source into a folder of the destination: read on a thread of its own and
/// written under a temporary name, then dated and named, so that nothing half-written ever takes a
/// real name. A source that stops answering is given up at the watchdog's deadline; its reader is
/// left to finish or hang alone, holding the source alive.
struct FileCopy
{
    /// How long the source may stay silent before the file fails.
    std::chrono::milliseconds watchdog{std::chrono::seconds(120)};
    const std::atomic<bool>* abort = nullptr;
    /// The reason of a file that arrives empty.
    QString emptyReason;
    /// Called with the bytes received so far.
    std::function<void(qint64)> bytesDone;

    /// `name` is tried first in `folder`; a taken name is followed by `numbered(n)`, n = 2, 3…
    FileCopyResult run(const std::shared_ptr<CameraSource>& source, const CameraFile& file, const QString& folder,
                       const QString& name, const std::function<QString(int)>& numbered) const;
};

} // namespace nuvrel
