// The "CMP0" envelope. The first input byte picks whether the harness repairs the digest, so
// that mutated bodies reach the inflater instead of stopping at the MD5 check.
#include "project/ovjsonserializer.h"

#include <QCryptographicHash>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const bool repair = data[0] & 1;
    QByteArray doc(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    if (repair && doc.startsWith("CMP0") && doc.size() >= 20)
        doc.replace(4, 16,
            QCryptographicHash::hash(
                QByteArrayView(doc.constData() + 20, doc.size() - 20), QCryptographicHash::Md5));
    QByteArray json;
    if (!OVJsonSerializer::unwrap(doc, &json))
        return 0;
    if (OVJsonSerializer::isWrapped(doc) && json.isEmpty())
        std::abort(); // an envelope that inflates to nothing must fail
    // Whatever came out must survive our own envelope unchanged.
    QByteArray again;
    if (!json.isEmpty() && (!OVJsonSerializer::unwrap(OVJsonSerializer::wrap(json), &again) || again != json))
        std::abort();
    return 0;
}
