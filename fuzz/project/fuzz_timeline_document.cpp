// The timeline document: after one write (which rounds times to the millisecond) a further
// read and write must reproduce the same document.
#include "project/ovjsonserializer.h"
#include "project/timeline.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray doc(reinterpret_cast<const char *>(data), qsizetype(size));
    OVProject::Timeline timeline(QStringLiteral("t"));
    const OVJsonSerializer serializer(false);
    if (!serializer.readTimeline(doc, &timeline))
        return 0;
    const QByteArray first = serializer.writeTimeline(&timeline);
    OVProject::Timeline again(QStringLiteral("t"));
    if (!serializer.readTimeline(first, &again) || serializer.writeTimeline(&again) != first)
        std::abort();
    return 0;
}
