#pragma once

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>

#include <atomic>
#include <memory>

namespace nuvrel {

/// One photo or video as its source lists it. Everything here comes from the phone or the folder:
/// untrusted, and cleaned before it names a file of ours.
struct CameraFile
{
    QString path;           ///< where the source finds it again
    QString name;           ///< the file's own name
    qint64 size = 0;        ///< as listed; a copy that ends at another size fails
    QDateTime created;      ///< invalid when the source does not know it
    QString typeIdentifier; ///< a uniform type identifier where the source gives one, else empty
};

/// The bytes of one file, in order, in large blocks. Used on one thread at a time.
class CameraFileReader
{
public:
    virtual ~CameraFileReader() = default;
    /// Up to `capacity` bytes; 0 at the end of the file, -1 on a failure that errorText() words.
    virtual qint64 read(char* into, qint64 capacity) = 0;
    virtual QString errorText() const = 0;
};

/// Where photos and videos are copied from: a phone on a cable, or a folder that holds a DCIM tree
/// (a phone mounted by the file manager, a camera's card).
class CameraSource
{
public:
    enum class Kind { Phone, Folder };

    virtual ~CameraSource() = default;

    virtual Kind kind() const = 0;
    /// The name the copy history knows this source by; "iPhone" when a phone does not tell its name.
    virtual QString deviceName() const = 0;
    /// Every photo and video, in the source's order. Blocks: call it off the GUI thread. Throws a
    /// LocalizedError when nothing at all can be listed.
    virtual QList<CameraFile> mediaFiles(const std::atomic<bool>* cancel) = 0;
    /// A reader of `file`, or null with `error` set. May be called from a thread of its own while the
    /// source lives.
    virtual std::unique_ptr<CameraFileReader> open(const CameraFile& file, QString& error) = 0;
    /// False once the source is gone: the phone unplugged, the card or the folder removed.
    virtual bool isPresent() = 0;
    /// After a read was given up on (it never returned): the next files are read over a fresh
    /// connection, the stuck one left to its reader. Nothing to do for a folder.
    virtual void reconnect() {}
};

/// The phone on a cable, as far as it lets us in. ImageCaptureCore on macOS; libimobiledevice through
/// usbmuxd elsewhere.
class PhoneWatcher : public QObject
{
    Q_OBJECT
public:
    enum class State {
        Searching,  ///< watching has just begun
        NoDevice,   ///< no phone, or no service that could see one
        Connecting, ///< a phone is there; talking to it
        Locked,     ///< locked, or "Se fier à cet ordinateur" not answered yet
        Refused,    ///< the phone refused to trust this computer
        Ready,      ///< its camera can be read
        Failed,     ///< it answered, but not as a phone does
    };

    using QObject::QObject;

    virtual State state() const = 0;
    /// The phone's own name while one is there; may be empty when it does not tell.
    virtual QString deviceName() const = 0;
    /// Starts watching arrivals and removals; the state follows.
    virtual void start() = 0;
    virtual void stop() = 0;
    /// Talks to the phone again, as "Actualiser" asks: after it was unlocked, or trusted.
    virtual void refresh() = 0;
    /// The ready phone's camera, or null when no phone is ready. It talks to the phone: call it off the
    /// GUI thread (any thread may). The source lives on its own: it stays usable (and reports
    /// isPresent() false) after the phone goes.
    virtual std::shared_ptr<CameraSource> camera() = 0;
    /// The name of the phone mounted at `folder` by the file manager, or empty when that folder is not
    /// a phone's.
    virtual QString nameOfMountedPhone(const QString& folder) = 0;

Q_SIGNALS:
    void stateChanged();
};

} // namespace nuvrel
