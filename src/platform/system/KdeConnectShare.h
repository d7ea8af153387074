#pragma once

#include "platform/NearbyShare.h"

namespace nuvrel {

class Launcher;

/// KDE Connect's command, `kdeconnect-cli`: the paired phones it can reach now (`-a --id-name-only`),
/// and each file shared to one of them (`--share FILE -d ID`). Its daemon sends the file and shows
/// the progress in its own notifications.
class KdeConnectShare final : public NearbyShare
{
public:
    explicit KdeConnectShare(Launcher& launcher);

    Service service() const override { return Service::KdeConnect; }
    Availability availability() override;
    Outcome send(const QStringList& files, const QString& device) override;

private:
    Launcher& m_launcher;
};

} // namespace nuvrel
