#pragma once

#include "platform/Volumes.h"

namespace nuvrel {

/// The mounted volumes through QStorageInfo.
class SystemVolumes final : public Volumes
{
public:
    std::optional<Volume> volumeOf(const QString& path) override;
    QList<Volume> mounted() override;
};

} // namespace nuvrel
