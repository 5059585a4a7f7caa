// The project document: read, then written and read again to the same header.
#include "project/ovjsonserializer.h"
#include "project/project.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray doc(reinterpret_cast<const char *>(data), qsizetype(size));
    OVProject::Project project;
    const OVJsonSerializer serializer(false);
    if (!serializer.readProject(doc, &project))
        return 0;
    OVProject::Project back;
    if (!serializer.readProject(serializer.writeProject(&project), &back)
        || back.contentHash() != project.contentHash())
        std::abort();
    return 0;
}
