#pragma once

#include "platform/SecretStore.h"

#include <QMap>
#include <QPair>

namespace nuvrel::test {

/// A SecretStore in memory, for tests of what is kept; `refuse` plays a locked or missing keychain.
class MemorySecretStore final : public SecretStore
{
public:
    std::optional<QString> load(const QString& service, const QString& account) override
    {
        if (refuse || !items.contains({service, account}))
            return std::nullopt;
        return items.value({service, account});
    }
    bool save(const QString& service, const QString& account, const QString& secret) override
    {
        if (refuse)
            return false;
        items.insert({service, account}, secret);
        return true;
    }
    std::optional<QByteArray> loadBytes(const QString& service, const QString& account) override
    {
        if (refuse || !bytes.contains({service, account}))
            return std::nullopt;
        return bytes.value({service, account});
    }
    bool saveBytes(const QString& service, const QString& account, const QByteArray& secret) override
    {
        if (refuse)
            return false;
        bytes.insert({service, account}, secret);
        return true;
    }
    bool remove(const QString& service, const QString& account) override
    {
        if (refuse)
            return false;
        items.remove({service, account});
        bytes.remove({service, account});
        return true;
    }

    QMap<QPair<QString, QString>, QString> items;
    QMap<QPair<QString, QString>, QByteArray> bytes;
    bool refuse = false;
};

} // namespace nuvrel::test
