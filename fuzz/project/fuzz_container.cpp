// The ".kvpr" container, both forms, from memory.
#include "project/ovprojectcontainer.h"

#include <QBuffer>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    const auto keep = [](const QString &name) { return name.endsWith(QLatin1String(".json")); };
    OVProjectContainer::Entries entries;
    switch (OVProjectContainer::detectForm(&buffer)) {
    case OVProjectContainer::ContainerForm:
        if (OVProjectContainer::read(&buffer, &entries, keep)) {
            // A sound container written again reads back to the same entries.
            QList<OVProjectContainer::WriteEntry> out;
            for (auto it = entries.cbegin(); it != entries.cend(); ++it) {
                if (it->inMemory)
                    out.append({ it.key(), it->data });
            }
            QBuffer written;
            written.open(QIODevice::ReadWrite);
            if (!OVProjectContainer::write(&written, out))
                std::abort();
            written.seek(0);
            OVProjectContainer::Entries back;
            if (!OVProjectContainer::read(&written, &back) || back.size() != out.size())
                std::abort();
        }
        break;
    case OVProjectContainer::ZipForm:
        OVProjectContainer::readZip(&buffer, &entries, keep, nullptr, 1 << 24);
        break;
    default:
        break;
    }
    return 0;
}
