#pragma once

#include "engines/lighten/LightenTarget.h"

#include <QString>

#include <atomic>
#include <functional>

namespace nuvrel {

/// How a file is made smaller, from its extension.
enum class LightenRoute {
    Photo, ///< a picture our decoders read: JPEG, HEIC/HEIF, PNG, TIFF, WebP, GIF
    Video,
    Pdf,
    Other, ///< zipped when that makes it smaller, else copied (RAW, PSD, SVG… as well)
};

struct LightenOptions
{
    LightenTarget target = LightenTarget::WhatsApp;
    bool stripLocation = true; ///< photos and videos lose their GPS position
    bool convertHeic = true;   ///< a HEIC photo becomes a JPEG, which every receiver opens
};

/// What lightening one file made.
struct LightenOutcome
{
    QString output;
    qint64 sizeBefore = 0;
    qint64 sizeAfter = 0;
};

/// The fraction of a video written so far, from 0 to 1; called on the working thread.
using LightenProgress = std::function<void(double fraction)>;

/// Makes one smaller copy of a file, fit for a channel's attachment limit, in an output folder. The
/// source is only read. Every output is written under a temporary name and takes its final name
/// ("photo-leger.jpg", then "photo-leger-2.jpg"…) only once complete; a failure leaves nothing.
/// Stateless: files may be lightened on several threads at once. Errors are LightenError, or a
/// FileError for a reason of the system's (a full disk).
class Lightener final
{
public:
    Lightener() = delete;

    static LightenRoute routeFor(const QString& path);

    /// Takes the file's route and measures both sizes. `progress` and `cancel` reach videos (ffmpeg
    /// stops at once) and PDFs (between pages); photos and other files are done in one go.
    static LightenOutcome lighten(const QString& source, const LightenOptions& options, const QString& outputFolder,
                                  const LightenProgress& progress = {}, const std::atomic<bool>* cancel = nullptr);

    /// A photo, fitted to the target's side and, for a channel with a budget, encoded again at lower
    /// qualities, then smaller sizes, until it fits (16 encodings at most; a photo that cannot fit
    /// is kept at the last one). Always yields a "-leger" file, JPEG unless a HEIC stays HEIC.
    static QString lightenImage(const QString& source, LightenTarget target, bool strip, bool convertHeic,
                                const QString& outputFolder);
    /// A video in H.264 and AAC, in the target's frame sizes in turn until one fits its budget.
    static QString lightenVideo(const QString& source, LightenTarget target, bool strip, const QString& outputFolder,
                                const LightenProgress& progress = {}, const std::atomic<bool>* cancel = nullptr);
    /// A PDF whose pages become pictures, at lower resolutions in turn until it fits; a PDF that
    /// would not get smaller, or has a turned page, is copied unchanged under its own name.
    static QString lightenPdf(const QString& source, LightenTarget target, const QString& outputFolder,
                              const std::atomic<bool>* cancel = nullptr);
    /// The file zipped ("report.docx.zip") when that makes it smaller, else copied under its own name.
    static QString zipOrCopy(const QString& source, const QString& outputFolder);

    /// Draws every page of `source` at `dpi` as a JPEG of `quality` (0 to 1) into a new PDF at `to`;
    /// false when the source cannot be read or has no page, or `to` cannot be written.
    static bool renderPdf(const QString& source, double dpi, double quality, const QString& to,
                          const std::atomic<bool>* cancel = nullptr);

    /// `folder/name` when free, else "stem-2.ext", "stem-3.ext"…: the name an output would take now.
    static QString uniqueUrl(const QString& folder, const QString& name);
    /// The size in bytes, 0 when the file cannot be seen.
    static qint64 fileSize(const QString& path);
    /// Gives `to` the modification time of `from`, and its creation time where the system can set
    /// one (macOS). A failure leaves the times of writing.
    static void copyDates(const QString& from, const QString& to);
};

} // namespace nuvrel
