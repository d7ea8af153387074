// Arbitrary bytes as a backup key bag: parsing, and unlocking with a cheap header, must never
// misbehave, and a key bag that parses must keep its class records consistent.

#include "engines/backup/BackupKeyBag.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    std::optional<nuvrel::BackupKeyBag> bag = nuvrel::BackupKeyBag::parse(bytes);
    if (!bag)
        return 0;
    if (!bag->attrs().contains("SALT") || !bag->attrs().contains("ITER"))
        std::abort();
    // The derivation cost comes from the input; only cheap ones are worth running here.
    const quint64 iterations = nuvrel::BackupKeyBag::intValue(bag->attrs().value("ITER"));
    const quint64 first = nuvrel::BackupKeyBag::intValue(bag->attrs().value("DPIC"));
    if (iterations <= 16 && first <= 16 && bag->unlock(QStringLiteral("password"))) {
        for (const QByteArray& key : bag->classKeys())
            if (key.isEmpty() || key.size() % 8 != 0)
                std::abort(); // an RFC 3394 unwrap always gives whole 64-bit blocks
    }
    return 0;
}
