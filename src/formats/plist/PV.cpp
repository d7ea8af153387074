#include "formats/plist/PV.h"

namespace nuvrel {

const PV* PV::value(const QString& key) const
{
    const Dict* dict = asDict();
    if (!dict)
        return nullptr;
    const auto found = dict->find(key);
    return found == dict->end() ? nullptr : &found->second;
}

} // namespace nuvrel
