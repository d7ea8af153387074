// Feeds arbitrary bytes to the binary property-list reader and the file-record parser, and checks
// that the direct walk of MBFileInfo::parse agrees with the walk over the fully decoded tree.

#include "engines/backup/MBFileInfo.h"
#include "formats/plist/BPlist.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const std::optional<nuvrel::MBFileInfo> direct = nuvrel::MBFileInfo::parse(bytes);
    if (const std::optional<nuvrel::BPlist> plist = nuvrel::BPlist::fromData(bytes)) {
        bool complete = false;
        const nuvrel::PV top = plist->object(plist->top(), 0, &complete);
        if (complete && nuvrel::MBFileInfo::fromArchive(top) != direct)
            std::abort();
    }
    return 0;
}
