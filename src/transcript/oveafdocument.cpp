#include "transcript/oveafdocument.h"

#include "project/ovreadbudget.h"

#include <QDateTime>
#include <QFileInfo>
#include <QHash>
#include <QMimeDatabase>
#include <QObject>
#include <QRegularExpression>
#include <QSet>
#include <QUrl>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>

namespace {

using Row = OVTranscriptData::Row;

// Bounds on a hostile document, beyond what any real annotation project needs.
constexpr qint64 MaxElements = 4'000'000;
constexpr int MaxDepth = 32;
constexpr int MaxTiers = 10'000;

struct Tier
{
    QString id;
    QString participant;
    QString type;
    QString parent;
    int line = 0;
};

struct Annotation
{
    QString id;
    int tier = -1;
    int line = 0;
    QString value;
    // Time-aligned: the two slots. Referring: the annotation referred to.
    QString slot1;
    QString slot2;
    QString ref;
    QString previous;
};

// Tiers the writer had to add for overlapping rows are named "Name (2)"; read back, they are
// the tier "Name" again.
QString baseName(const QString &tierId, const QSet<QString> &tierIds)
{
    static const QRegularExpression suffix(QStringLiteral("^(.*) \\((\\d+)\\)$"));
    const QRegularExpressionMatch m = suffix.match(tierId);
    if (m.hasMatch() && tierIds.contains(m.captured(1)))
        return m.captured(1);
    return tierId;
}

} // namespace

QByteArray OVEafDocument::write(const OVTranscriptData &data, const QString &mediaPath)
{
    // Tiers: first fit by start, per (kind, name), so that no tier holds overlaps (ELAN refuses
    // them). Each tier's id is unique in the document.
    struct OutTier
    {
        QString id;
        QString name;
        OVTranscriptData::Kind kind;
        QList<const Row *> rows;
    };
    QList<const Row *> sorted;
    for (const Row &r : data.rows)
        sorted.append(&r);
    std::stable_sort(sorted.begin(), sorted.end(), [](const Row *a, const Row *b) {
        return a->kind != b->kind ? a->kind < b->kind : a->start < b->start;
    });
    QList<OutTier> tiers;
    QSet<QString> ids;
    for (const Row *r : sorted) {
        qsizetype t = 0;
        for (; t < tiers.size(); ++t) {
            const OutTier &o = tiers.at(t);
            if (o.kind == r->kind && o.name == r->tier && o.rows.last()->end <= r->start)
                break;
        }
        if (t == tiers.size()) {
            QString id = r->tier.isEmpty() ? QStringLiteral("Speaker") : r->tier;
            for (int n = 2; ids.contains(id); ++n)
                id = QStringLiteral("%1 (%2)").arg(r->tier.isEmpty() ? QStringLiteral("Speaker") : r->tier).arg(n);
            ids.insert(id);
            tiers.append(OutTier { id, r->tier, r->kind, {} });
        }
        tiers[t].rows.append(r);
    }
    // Tiers of one kind in the order their names first appear in the data.
    QHash<QString, int> firstSeen;
    for (const Row &r : data.rows)
        firstSeen.insert(QString::number(r.kind) + r.tier, firstSeen.value(QString::number(r.kind) + r.tier, int(firstSeen.size())));
    std::stable_sort(tiers.begin(), tiers.end(), [&firstSeen](const OutTier &a, const OutTier &b) {
        return firstSeen.value(QString::number(a.kind) + a.name) < firstSeen.value(QString::number(b.kind) + b.name);
    });

    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("ANNOTATION_DOCUMENT"));
    xml.writeAttribute(QStringLiteral("AUTHOR"), QString());
    xml.writeAttribute(QStringLiteral("DATE"), QDateTime::currentDateTime().toOffsetFromUtc(QDateTime::currentDateTime().offsetFromUtc()).toString(Qt::ISODate));
    xml.writeAttribute(QStringLiteral("FORMAT"), QStringLiteral("3.0"));
    xml.writeAttribute(QStringLiteral("VERSION"), QStringLiteral("3.0"));
    xml.writeNamespace(QStringLiteral("http://www.w3.org/2001/XMLSchema-instance"), QStringLiteral("xsi"));
    xml.writeAttribute(QStringLiteral("http://www.w3.org/2001/XMLSchema-instance"), QStringLiteral("noNamespaceSchemaLocation"),
        QStringLiteral("http://www.mpi.nl/tools/elan/EAFv3.0.xsd"));

    xml.writeStartElement(QStringLiteral("HEADER"));
    xml.writeAttribute(QStringLiteral("MEDIA_FILE"), QString());
    xml.writeAttribute(QStringLiteral("TIME_UNITS"), QStringLiteral("milliseconds"));
    if (!mediaPath.isEmpty()) {
        const QFileInfo media(mediaPath);
        xml.writeEmptyElement(QStringLiteral("MEDIA_DESCRIPTOR"));
        xml.writeAttribute(QStringLiteral("MEDIA_URL"), QUrl::fromLocalFile(media.absoluteFilePath()).toString());
        xml.writeAttribute(QStringLiteral("MIME_TYPE"), QMimeDatabase().mimeTypeForFile(media, QMimeDatabase::MatchExtension).name());
        xml.writeAttribute(QStringLiteral("RELATIVE_MEDIA_URL"), QStringLiteral("./") + media.fileName());
    }
    xml.writeStartElement(QStringLiteral("PROPERTY"));
    xml.writeAttribute(QStringLiteral("NAME"), QStringLiteral("lastUsedAnnotationId"));
    xml.writeCharacters(QString::number(data.rows.size()));
    xml.writeEndElement();
    xml.writeEndElement(); // HEADER

    auto ms = [](double seconds) { return QString::number(std::llround(std::max(0.0, seconds) * 1000.0)); };
    xml.writeStartElement(QStringLiteral("TIME_ORDER"));
    // One slot per annotation end, numbered in the order of the tiers; ELAN sorts them itself.
    int slot = 0;
    for (const OutTier &t : std::as_const(tiers)) {
        for (const Row *r : t.rows) {
            for (double at : { r->start, r->end }) {
                xml.writeEmptyElement(QStringLiteral("TIME_SLOT"));
                xml.writeAttribute(QStringLiteral("TIME_SLOT_ID"), QStringLiteral("ts%1").arg(++slot));
                xml.writeAttribute(QStringLiteral("TIME_VALUE"), ms(at));
            }
        }
    }
    xml.writeEndElement();

    slot = 0;
    int annotation = 0;
    for (const OutTier &t : std::as_const(tiers)) {
        xml.writeStartElement(QStringLiteral("TIER"));
        xml.writeAttribute(QStringLiteral("LINGUISTIC_TYPE_REF"), QLatin1String(t.kind == OVTranscriptData::Labels ? LabelType : UtteranceType));
        if (t.kind == OVTranscriptData::Speech)
            xml.writeAttribute(QStringLiteral("PARTICIPANT"), t.name);
        xml.writeAttribute(QStringLiteral("TIER_ID"), t.id);
        for (const Row *r : t.rows) {
            xml.writeStartElement(QStringLiteral("ANNOTATION"));
            xml.writeStartElement(QStringLiteral("ALIGNABLE_ANNOTATION"));
            xml.writeAttribute(QStringLiteral("ANNOTATION_ID"), QStringLiteral("a%1").arg(++annotation));
            xml.writeAttribute(QStringLiteral("TIME_SLOT_REF1"), QStringLiteral("ts%1").arg(++slot));
            xml.writeAttribute(QStringLiteral("TIME_SLOT_REF2"), QStringLiteral("ts%1").arg(++slot));
            xml.writeTextElement(QStringLiteral("ANNOTATION_VALUE"), r->text);
            xml.writeEndElement();
            xml.writeEndElement();
        }
        xml.writeEndElement();
    }
    for (const char *type : { UtteranceType, LabelType }) {
        xml.writeEmptyElement(QStringLiteral("LINGUISTIC_TYPE"));
        xml.writeAttribute(QStringLiteral("GRAPHIC_REFERENCES"), QStringLiteral("false"));
        xml.writeAttribute(QStringLiteral("LINGUISTIC_TYPE_ID"), QLatin1String(type));
        xml.writeAttribute(QStringLiteral("TIME_ALIGNABLE"), QStringLiteral("true"));
    }
    // The standard constraints every EAF declares.
    const QList<QPair<QString, QString>> constraints {
        { QStringLiteral("Time_Subdivision"), QStringLiteral("Time subdivision of parent annotation's time interval, no time gaps allowed within this interval") },
        { QStringLiteral("Symbolic_Subdivision"), QStringLiteral("Symbolic subdivision of a parent annotation. Annotations refering to the same parent are ordered") },
        { QStringLiteral("Symbolic_Association"), QStringLiteral("1-1 association with a parent annotation") },
        { QStringLiteral("Included_In"), QStringLiteral("Time alignable annotations within the parent annotation's time interval, gaps are allowed") },
    };
    for (const auto &[stereotype, description] : constraints) {
        xml.writeEmptyElement(QStringLiteral("CONSTRAINT"));
        xml.writeAttribute(QStringLiteral("DESCRIPTION"), description);
        xml.writeAttribute(QStringLiteral("STEREOTYPE"), stereotype);
    }
    xml.writeEndElement(); // ANNOTATION_DOCUMENT
    xml.writeEndDocument();
    return bytes;
}

bool OVEafDocument::read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report,
    OVReadBudget *budget, QString *why)
{
    if (bytes.size() > OVTranscriptInput::MaxFileBytes) {
        *why = QObject::tr("the file is larger than %1 MB").arg(OVTranscriptInput::MaxFileBytes >> 20);
        return false;
    }
    QXmlStreamReader xml(bytes);
    auto fail = [&xml, why](const QString &what) {
        *why = QObject::tr("line %1: %2").arg(xml.lineNumber()).arg(what);
        return false;
    };
    auto attr = [&xml](const char *name) { return xml.attributes().value(QLatin1String(name)).toString(); };

    QList<QString> slotOrder;
    QHash<QString, std::optional<qint64>> slotTimes;
    QList<Tier> tiers;
    QSet<QString> tierIds;
    QList<Annotation> annotations;
    QHash<QString, int> annotationIndex;
    bool inRoot = false;
    int depth = 0;
    qint64 elements = 0;
    Annotation *current = nullptr;

    while (!xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::EndElement) {
            --depth;
            if (xml.name() == QLatin1String("ALIGNABLE_ANNOTATION") || xml.name() == QLatin1String("REF_ANNOTATION"))
                current = nullptr;
            continue;
        }
        if (token != QXmlStreamReader::StartElement)
            continue;
        if (++depth > MaxDepth)
            return fail(QObject::tr("elements nested deeper than %1").arg(MaxDepth));
        if (++elements > MaxElements)
            return fail(QObject::tr("more than %1 elements").arg(MaxElements));
        if ((elements & 4095) == 0 && budget) {
            if (budget->isCancelled())
                return fail(QObject::tr("cancelled"));
            budget->setProgress(int(xml.characterOffset() * 900 / std::max<qint64>(1, bytes.size())));
        }
        const QStringView name = xml.name();
        if (!inRoot) {
            if (name != QLatin1String("ANNOTATION_DOCUMENT"))
                return fail(QObject::tr("not an ELAN document (the root element is <%1>, not <ANNOTATION_DOCUMENT>)").arg(name.left(40)));
            inRoot = true;
        } else if (name == QLatin1String("HEADER")) {
            const QString units = attr("TIME_UNITS");
            if (!units.isEmpty() && units != QLatin1String("milliseconds"))
                return fail(QObject::tr("time units \"%1\" (only milliseconds are read)").arg(units.left(40)));
        } else if (name == QLatin1String("TIME_SLOT")) {
            const QString id = attr("TIME_SLOT_ID");
            if (id.isEmpty() || slotTimes.contains(id))
                return fail(QObject::tr("a TIME_SLOT without an id, or with the id \"%1\" twice").arg(id.left(40)));
            std::optional<qint64> time;
            if (xml.attributes().hasAttribute(QLatin1String("TIME_VALUE"))) {
                bool ok = false;
                const qint64 v = attr("TIME_VALUE").toLongLong(&ok);
                if (!ok || v < 0 || v > qint64(1e12))
                    return fail(QObject::tr("TIME_SLOT %1 has the time \"%2\"").arg(id, attr("TIME_VALUE").left(40)));
                time = v;
            }
            slotTimes.insert(id, time);
            slotOrder.append(id);
        } else if (name == QLatin1String("TIER")) {
            Tier t;
            t.id = attr("TIER_ID");
            t.participant = attr("PARTICIPANT");
            t.type = attr("LINGUISTIC_TYPE_REF");
            t.parent = attr("PARENT_REF");
            t.line = int(xml.lineNumber());
            if (t.id.isEmpty() || tierIds.contains(t.id))
                return fail(QObject::tr("a TIER without an id, or with the id \"%1\" twice").arg(t.id.left(40)));
            if (tiers.size() >= MaxTiers)
                return fail(QObject::tr("more than %1 tiers").arg(MaxTiers));
            tierIds.insert(t.id);
            tiers.append(t);
        } else if (name == QLatin1String("ALIGNABLE_ANNOTATION") || name == QLatin1String("REF_ANNOTATION")) {
            if (tiers.isEmpty())
                return fail(QObject::tr("an annotation outside a TIER"));
            Annotation a;
            a.id = attr("ANNOTATION_ID");
            a.tier = int(tiers.size() - 1);
            a.line = int(xml.lineNumber());
            if (name == QLatin1String("ALIGNABLE_ANNOTATION")) {
                a.slot1 = attr("TIME_SLOT_REF1");
                a.slot2 = attr("TIME_SLOT_REF2");
            } else {
                a.ref = attr("ANNOTATION_REF");
                a.previous = attr("PREVIOUS_ANNOTATION");
                if (a.ref.isEmpty())
                    return fail(QObject::tr("REF_ANNOTATION %1 refers to nothing").arg(a.id.left(40)));
            }
            if (a.id.isEmpty() || annotationIndex.contains(a.id))
                return fail(QObject::tr("an annotation without an id, or with the id \"%1\" twice").arg(a.id.left(40)));
            QString budgetWhy;
            if (!OVTranscriptInput::takeRows(budget, 1, &budgetWhy))
                return fail(budgetWhy);
            annotationIndex.insert(a.id, int(annotations.size()));
            annotations.append(a);
            current = &annotations.last();
        } else if (name == QLatin1String("ANNOTATION_VALUE")) {
            if (!current)
                return fail(QObject::tr("an ANNOTATION_VALUE outside an annotation"));
            const QString value = xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement);
            --depth; // readElementText() consumed the end element
            if (value.size() > OVTranscriptInput::MaxFieldChars)
                return fail(QObject::tr("an annotation longer than %1 characters").arg(OVTranscriptInput::MaxFieldChars));
            current->value = value;
        }
    }
    if (xml.hasError())
        return fail(xml.errorString());
    if (!inRoot)
        return fail(QObject::tr("not an ELAN document"));

    // Unaligned slots lie evenly between the aligned slots around them in the time order.
    QHash<QString, double> seconds;
    for (qsizetype i = 0; i < slotOrder.size();) {
        const std::optional<qint64> t = slotTimes.value(slotOrder.at(i));
        if (t) {
            seconds.insert(slotOrder.at(i), *t / 1000.0);
            ++i;
            continue;
        }
        qsizetype j = i;
        while (j < slotOrder.size() && !slotTimes.value(slotOrder.at(j)))
            ++j;
        const double before = i > 0 ? seconds.value(slotOrder.at(i - 1)) : 0.0;
        const double after = j < slotOrder.size() ? *slotTimes.value(slotOrder.at(j)) / 1000.0 : before;
        for (qsizetype k = i; k < j; ++k)
            seconds.insert(slotOrder.at(k), before + (after - before) * double(k - i + 1) / double(j - i + 1));
        i = j;
    }

    // Times of every annotation; referring ones resolved through their parents, bounded and
    // without cycles.
    const qsizetype n = annotations.size();
    QList<double> starts(n, 0.0);
    QList<double> ends(n, 0.0);
    QList<char> state(n, 0); // 0 not yet, 1 resolving, 2 done
    // Children of one parent that share its span, in order.
    QHash<int, QList<int>> siblings;
    for (qsizetype i = 0; i < n; ++i) {
        if (!annotations.at(i).ref.isEmpty()) {
            const int parent = annotationIndex.value(annotations.at(i).ref, -1);
            if (parent >= 0)
                siblings[parent].append(int(i));
        }
    }
    // The annotations of one tier that refer to one parent divide it in the order their
    // PREVIOUS_ANNOTATION links give (document order where the links are missing). Each one's
    // place and the number of them are worked out once per parent and tier: a parent with
    // thousands of children is asked as often.
    QHash<int, QPair<qsizetype, qsizetype>> places;
    auto place = [&](int parent, int i) {
        const auto known = places.constFind(i);
        if (known != places.cend())
            return *known;
        const int tier = annotations.at(i).tier;
        QList<int> group;
        for (int s : siblings.value(parent))
            if (annotations.at(s).tier == tier)
                group.append(s);
        QHash<QString, int> after;
        QSet<QString> ids;
        for (int s : std::as_const(group))
            ids.insert(annotations.at(s).id);
        for (int s : std::as_const(group))
            if (!annotations.at(s).previous.isEmpty())
                after.insert(annotations.at(s).previous, s);
        QList<int> ordered;
        QSet<int> placed;
        for (int s : std::as_const(group)) {
            if (placed.contains(s) || ids.contains(annotations.at(s).previous))
                continue;
            for (int k = s; k >= 0 && !placed.contains(k); k = after.value(annotations.at(k).id, -1)) {
                ordered.append(k);
                placed.insert(k);
            }
        }
        for (int s : std::as_const(group))
            if (!placed.contains(s))
                ordered.append(s);
        for (qsizetype k = 0; k < ordered.size(); ++k)
            places.insert(ordered.at(k), { k, ordered.size() });
        return places.value(i);
    };
    auto failAt = [why](const Annotation &a, const QString &what) {
        *why = QObject::tr("line %1: annotation %2 %3").arg(a.line).arg(a.id.left(40), what);
        return false;
    };
    std::function<bool(int, int)> resolve = [&](int i, int hops) -> bool {
        if (state.at(i) == 2)
            return true;
        const Annotation &a = annotations.at(i);
        if (state.at(i) == 1 || hops > MaxDepth)
            return failAt(a, QObject::tr("refers to itself through its parents"));
        state[i] = 1;
        if (a.ref.isEmpty()) {
            if (!seconds.contains(a.slot1) || !seconds.contains(a.slot2))
                return failAt(a, QObject::tr("uses a time slot that does not exist"));
            starts[i] = seconds.value(a.slot1);
            ends[i] = seconds.value(a.slot2);
            if (ends.at(i) < starts.at(i))
                return failAt(a, QObject::tr("ends before it starts"));
        } else {
            const int parent = annotationIndex.value(a.ref, -1);
            if (parent < 0)
                return failAt(a, QObject::tr("refers to %1, which does not exist").arg(a.ref.left(40)));
            if (!resolve(parent, hops + 1))
                return false;
            const auto [k, count] = place(parent, i);
            const double span = (ends.at(parent) - starts.at(parent)) / double(std::max<qsizetype>(1, count));
            starts[i] = starts.at(parent) + span * double(k);
            ends[i] = starts.at(i) + span;
        }
        state[i] = 2;
        return true;
    };

    QSet<QString> names;
    for (const Tier &t : std::as_const(tiers))
        names.insert(t.id);
    QList<Row> rows;
    OVTranscriptReport result;
    for (qsizetype i = 0; i < n; ++i) {
        if (!resolve(int(i), 0))
            return false;
        const Annotation &a = annotations.at(i);
        const Tier &t = tiers.at(a.tier);
        const bool label = t.type == QLatin1String(LabelType);
        // A coded segment without a note is still a segment; an utterance without words is not.
        if (!label && a.value.trimmed().isEmpty()) {
            result.skip(QObject::tr("tier \"%1\": an empty annotation").arg(t.id));
            continue;
        }
        Row r;
        r.kind = label ? OVTranscriptData::Labels : OVTranscriptData::Speech;
        r.tier = r.kind == OVTranscriptData::Speech && !t.participant.isEmpty() ? t.participant : baseName(t.id, names);
        r.start = starts.at(i);
        r.end = ends.at(i);
        r.text = a.value;
        rows.append(r);
    }
    std::stable_sort(rows.begin(), rows.end(), [](const Row &a, const Row &b) { return a.start < b.start; });
    return OVTranscriptInput::finish(rows, result, data, report);
}
