#pragma once

#include "platform/Workspace.h"

#include <QStringList>

namespace nuvrel::test {

/// A Workspace that remembers what it was asked to open or reveal; `refuse` plays a desktop without a
/// handler.
class RecordingWorkspace final : public Workspace
{
public:
    bool open(const QString& path) override
    {
        opened.append(path);
        return !refuse;
    }
    bool reveal(const QString& path) override
    {
        revealed.append(path);
        return !refuse;
    }
    bool openUrl(const QUrl& url) override
    {
        urls.append(url.toString());
        return !refuse;
    }

    QStringList opened;
    QStringList revealed;
    QStringList urls;
    bool refuse = false;
};

} // namespace nuvrel::test
