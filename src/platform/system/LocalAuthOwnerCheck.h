#pragma once

#include "platform/OwnerCheck.h"

namespace nuvrel {

/// The owner check on macOS: LocalAuthentication's device-owner policy (Touch ID or the account's
/// password), in the system's own sheet.
class LocalAuthOwnerCheck final : public OwnerCheck
{
public:
    Outcome confirmOwner(const QString& reason) override;
};

} // namespace nuvrel
