#pragma once

#include "platform/NearbyShare.h"

namespace nuvrel {

/// AirDrop on macOS: the files given to the sharing service named for it, whose own window lets the
/// user choose the iPhone. The window is the main thread's: send() runs its part there.
class AirDropShare final : public NearbyShare
{
public:
    Service service() const override { return Service::AirDrop; }
    Availability availability() override;
    Outcome send(const QStringList& files, const QString& device) override;
};

} // namespace nuvrel
