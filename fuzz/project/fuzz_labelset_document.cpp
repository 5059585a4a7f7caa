// The label-set document (".kvtl"), with the same write-read-write check as timelines.
#include "project/label.h"
#include "project/ovjsonserializer.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray doc(reinterpret_cast<const char *>(data), qsizetype(size));
    const OVJsonSerializer serializer(false);
    QList<OVProject::Label *> labels;
    if (!serializer.readLabelSet(doc, &labels))
        return 0;
    const QByteArray first = serializer.writeLabelSet(labels);
    QList<OVProject::Label *> again;
    if (!serializer.readLabelSet(first, &again) || serializer.writeLabelSet(again) != first)
        std::abort();
    qDeleteAll(labels);
    qDeleteAll(again);
    return 0;
}
