// Arbitrary bytes as an oldest-layout index (Manifest.mbdb): every entry it yields must be a
// regular file with a well-formed identifier.

#include "engines/backup/ManifestMbdb.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    for (const nuvrel::BackupEntry& entry : nuvrel::ManifestMbdb::parse(bytes)) {
        if (!nuvrel::BackupEntry::isValidFileID(entry.fileID) || !entry.preMeta ||
            (entry.preMeta->value.mode & 0xF000) != 0x8000)
            std::abort();
    }
    return 0;
}
