#include "projectfixture.h"

#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

#include <QCryptographicHash>
#include <QTemporaryDir>
#include <QTest>

#include <zlib.h>

using namespace OVProject;

namespace {
QByteArray plainJson(const QByteArray &doc)
{
    QByteArray json;
    return OVJsonSerializer::unwrap(doc, &json) ? json : QByteArray("<bad envelope>");
}

// A wrapped document with a zlib (not gzip) stream: readers detect the header themselves.
QByteArray wrapZlib(const QByteArray &json)
{
    uLongf size = compressBound(uLong(json.size()));
    QByteArray body(qsizetype(size), Qt::Uninitialized);
    compress2(reinterpret_cast<Bytef *>(body.data()), &size,
        reinterpret_cast<const Bytef *>(json.constData()), uLong(json.size()), 9);
    body.resize(qsizetype(size));
    return QByteArray("CMP0") + QCryptographicHash::hash(body, QCryptographicHash::Md5) + body;
}
} // namespace

class TestSerializer : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void roundTrip_data();
    void roundTrip();
    void envelopeLayout();
    void damagedEnvelopes_data();
    void damagedEnvelopes();
    void missingMembersGiveDefaults();
    void numbersAsTextOrNumbers_data();
    void numbersAsTextOrNumbers();
    void wrongTypesAreTolerated();
    void failedReadLeavesTimeline();
    void labelSets_data();
    void labelSets();
    void labelSetFile();
};

void TestSerializer::roundTrip_data()
{
    QTest::addColumn<bool>("compress");
    QTest::newRow("compressed") << true;
    QTest::newRow("plain") << false;
}

void TestSerializer::roundTrip()
{
    QFETCH(bool, compress);
    Project p;
    Fixture::fillProject(&p);
    const OVJsonSerializer s(compress);
    const QByteArray doc = s.writeProject(&p);
    QCOMPARE(OVJsonSerializer::isWrapped(doc), compress);
    Project back;
    QVERIFY(s.readProject(doc, &back));
    QCOMPARE(back.contentHash(), p.contentHash());
    QCOMPARE(back.id(), p.id());
    QCOMPARE(back.onlineId(), 1234567890123LL);
    QCOMPARE(back.timelineIds(), p.timelineIds());
    QCOMPARE(back.videoLength(), 754.126);
    // Either reader setting reads either form.
    Project other;
    QVERIFY(OVJsonSerializer(!compress).readProject(doc, &other));
    QCOMPARE(other.contentHash(), p.contentHash());
    for (Timeline *t : p.timelineGroup()->timelines()) {
        Timeline back(QStringLiteral("placeholder"));
        QVERIFY(s.readTimeline(s.writeTimeline(t), &back));
        QCOMPARE(Fixture::difference(t, &back), QString());
    }
    // Every key, with the types of the file format.
    const QByteArray json = plainJson(doc);
    for (const char *key : { "\"title\":\"", "\"desc\":\"", "\"id\":\"", "\"timeline_ids\":[",
             "\"video_id\":\"77\"", "\"video_path\":\"", "\"userelpath\":\"0\"",
             "\"online_id\":1234567890123", "\"project_type\":1", "\"max_text_lw\":64", "\"owner\":\"anna\"",
             "\"offlineUser\":\"anna.offline\"", "\"video_length\":\"754.126\"" })
        QVERIFY2(json.contains(key), key);
    const QByteArray tjson = plainJson(s.writeTimeline(p.timelineGroup()->timelines().first()));
    for (const char *key :
        { "\"isBlind\":\"1\"", "\"sortOrder\":\"7\"", "\"color\":\"2164228096\"", "\"key\":\"65\"",
            "\"key\":\"228\"", "\"segids\":[\"seg-1\",\"seg-3\"]", "\"hidden_uttusers\":[\"Pupil\"]",
            "\"startTime\":\"1.250\"", "\"end\":\"2147483647.000\"", "\"key\":\"drawings\"",
            // times carry three decimals, rounded: 12.3456 and 0.5
            "\"start\":\"12.346\"", "\"end\":\"0.500\"" })
        QVERIFY2(tjson.contains(key), key);
    QVERIFY(tjson.contains(
        QByteArray(QByteArray("\"data\":\"") + QByteArray("\x00\x01\x02\xff binary", 12).toBase64())));
    QVERIFY(!tjson.startsWith(' ') && !tjson.endsWith('\n'));
    QCOMPARE(OVJsonSerializer::formatTime(0), QStringLiteral("0.000"));
    QCOMPARE(OVJsonSerializer::formatTime(-1.0005), QStringLiteral("-1.000"));
}

void TestSerializer::envelopeLayout()
{
    const QByteArray json("{\"a\":\"b\"}");
    const QByteArray doc = OVJsonSerializer::wrap(json);
    QVERIFY(doc.startsWith("CMP0"));
    QCOMPARE(doc.mid(4, 16), QCryptographicHash::hash(doc.mid(20), QCryptographicHash::Md5));
    QCOMPARE(doc.mid(20, 2), QByteArray("\x1f\x8b")); // a gzip stream
    QByteArray back;
    QVERIFY(OVJsonSerializer::unwrap(doc, &back));
    QCOMPARE(back, json);
    QVERIFY(OVJsonSerializer::unwrap(wrapZlib(json), &back));
    QCOMPARE(back, json);
    QVERIFY(OVJsonSerializer::unwrap(json, &back));
    QCOMPARE(back, json);
}

void TestSerializer::damagedEnvelopes_data()
{
    QTest::addColumn<QByteArray>("doc");
    Project p;
    Fixture::fillProject(&p);
    const QByteArray good = OVJsonSerializer(true).writeProject(&p);
    QByteArray flipped = good;
    flipped[good.size() / 2 + 10] = char(flipped[good.size() / 2 + 10] ^ 0x20);
    QTest::newRow("flipped body byte") << flipped;
    QByteArray digest = good;
    digest[7] = char(digest[7] ^ 1);
    QTest::newRow("wrong digest") << digest;
    QByteArray truncated = good.left(good.size() - 9);
    truncated.replace(4, 16, QCryptographicHash::hash(truncated.mid(20), QCryptographicHash::Md5));
    QTest::newRow("truncated, digest fixed") << truncated;
    QTest::newRow("header only") << good.left(20);
    QTest::newRow("short") << QByteArray("CMP0abc");
    const QByteArray empty = OVJsonSerializer::wrap(QByteArray());
    QTest::newRow("inflates to nothing") << empty;
    const QByteArray garbage("not deflate at all");
    QTest::newRow("not deflate") << QByteArray("CMP0")
            + QCryptographicHash::hash(garbage, QCryptographicHash::Md5) + garbage;
    QTest::newRow("plain, not JSON") << QByteArray("{\"title\": ");
    QTest::newRow("plain, empty") << QByteArray();
    QTest::newRow("plain, array") << QByteArray("[1,2]");
}

void TestSerializer::damagedEnvelopes()
{
    QFETCH(QByteArray, doc);
    Project p;
    p.setTitle(QStringLiteral("unchanged"));
    QVERIFY(!OVJsonSerializer().readProject(doc, &p));
    QCOMPARE(p.title(), QStringLiteral("unchanged"));
}

void TestSerializer::missingMembersGiveDefaults()
{
    Project p;
    Fixture::fillProject(&p);
    p.timelineGroup()->clear();
    QVERIFY(OVJsonSerializer().readProject("{\"unknown\":{\"x\":[1,2]}}", &p));
    QCOMPARE(p.maxTextWidth(), 80);
    Project fresh;
    fresh.setMaxTextWidth(80);
    QCOMPARE(Fixture::difference(&p, &fresh), QString());
}

void TestSerializer::numbersAsTextOrNumbers_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("text") << QByteArray("{\"online_id\":\"42\",\"project_type\":\"1\",\"max_text_lw\":\"70\","
                                        "\"video_id\":\"7\",\"userelpath\":\"0\"}");
    QTest::newRow("numbers") << QByteArray("{\"online_id\":42,\"project_type\":1,\"max_text_lw\":70,"
                                           "\"video_id\":7,\"userelpath\":0}");
    QTest::newRow("padded text") << QByteArray(
        "{\"online_id\":\" 42 \",\"project_type\":\"1\",\"max_text_lw\":"
        "70.0,\"video_id\":\"7\",\"userelpath\":false}");
}

void TestSerializer::numbersAsTextOrNumbers()
{
    QFETCH(QByteArray, json);
    Project p;
    QVERIFY(OVJsonSerializer().readProject(json, &p));
    QCOMPARE(p.onlineId(), qint64(42));
    QCOMPARE(p.projectType(), 1);
    QCOMPARE(p.maxTextWidth(), 70);
    QCOMPARE(p.videoId(), 7);
    QCOMPARE(p.useRelativePath(), false);

    // Times as numbers or text.
    Timeline t;
    QVERIFY(OVJsonSerializer().readTimeline(
        "{\"labels\":[{\"id\":\"l\",\"key\":65,\"segments\":[{\"id\":\"a\",\"start\":12.5,\"end\":\"13.25\"},"
        "{\"id\":\"b\",\"start\":\"1e1\",\"end\":\"nonsense\"}]}],"
        "\"utterances\":[{\"id\":\"u\",\"startTime\":1,\"endTime\":\"2.000\"}]}",
        &t));
    const Label *l = t.labels().value(0);
    QVERIFY(l);
    QCOMPARE(l->key(), QLatin1Char('A'));
    QCOMPARE(l->segment(QStringLiteral("a"))->start(), 12.5);
    QCOMPARE(l->segment(QStringLiteral("a"))->end(), 13.25);
    QCOMPARE(l->segment(QStringLiteral("b"))->start(), 10.0);
    QCOMPARE(l->segment(QStringLiteral("b"))->end(), 0.0);
    QCOMPARE(t.utterances().value(0)->endTime(), 2.0);
}

void TestSerializer::wrongTypesAreTolerated()
{
    Timeline t;
    QVERIFY(OVJsonSerializer().readTimeline(
        "{\"owner\":5,\"isBlind\":true,\"labels\":{\"not\":\"an array\"},\"utterances\":[1,\"x\",null,[]],"
        "\"segment_groups\":[{\"id\":\"g\",\"segids\":\"nope\"},{\"id\":\"h\",\"segids\":[1,\"s\",{}]}],"
        "\"hidden_segments\":\"x\",\"binary_data\":[{\"key\":\"k\",\"data\":\"@@not base64\"},{\"data\":7}]}",
        &t));
    QCOMPARE(t.owner(), QStringLiteral("5"));
    QVERIFY(t.isBlind());
    QVERIFY(t.labels().isEmpty());
    QVERIFY(t.utterances().isEmpty());
    QCOMPARE(t.segmentGroups().size(), 2);
    QVERIFY(t.segmentGroup(QStringLiteral("g"))->segmentIds().isEmpty());
    QCOMPARE(t.segmentGroup(QStringLiteral("h"))->segmentIds(),
        (QList<Id> { QStringLiteral("1"), QStringLiteral("s"), QString() }));
    QVERIFY(t.hiddenSegments().isEmpty());
    QVERIFY(t.binaryData().contains(QStringLiteral("k")));
}

void TestSerializer::failedReadLeavesTimeline()
{
    Project p;
    Fixture::fillProject(&p);
    Timeline *t = p.timelineGroup()->timelines().first();
    const QString before = t->contentHash();
    QVERIFY(!OVJsonSerializer().readTimeline("{\"labels\":[", t));
    QByteArray doc = OVJsonSerializer(true).writeTimeline(t);
    doc[doc.size() - 3] = char(doc[doc.size() - 3] ^ 0x55);
    QVERIFY(!OVJsonSerializer().readTimeline(doc, t));
    QCOMPARE(t->contentHash(), before);
}

void TestSerializer::labelSets_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("labels");
    QTest::addColumn<int>("segments");
    QTest::newRow("no segments") << QByteArray(
        "{\"labels\":[{\"id\":\"a\",\"name\":\"A\",\"key\":\"65\",\"color\":"
        "\"4278190335\"},{\"id\":\"b\",\"name\":\"B\"}]}")
                                 << true << 2 << 0;
    QTest::newRow("with segments") << QByteArray(
        "{\"labels\":[{\"id\":\"a\",\"segments\":[{\"id\":\"s\",\"start\":"
        "\"1.000\",\"end\":\"2.000\"}]}]}")
                                   << true << 1 << 1;
    QTest::newRow("empty list") << QByteArray("{\"labels\":[]}") << true << 0 << 0;
    QTest::newRow("no labels member") << QByteArray("{\"title\":\"x\"}") << false << 0 << 0;
    QTest::newRow("top-level array") << QByteArray("[{\"labels\":[]}]") << false << 0 << 0;
    QTest::newRow("not JSON") << QByteArray("labels") << false << 0 << 0;
}

void TestSerializer::labelSets()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, ok);
    QFETCH(int, labels);
    QFETCH(int, segments);
    for (const QByteArray &doc : { json, OVJsonSerializer::wrap(json) }) {
        QList<Label *> out;
        QCOMPARE(OVJsonSerializer().readLabelSet(doc, &out), ok);
        QCOMPARE(out.size(), labels);
        int count = 0;
        for (Label *l : out)
            count += l->segmentCount();
        QCOMPARE(count, segments);
        if (labels == 2) {
            QCOMPARE(out[0]->color(), QColor(Qt::blue));
            QCOMPARE(out[0]->key(), QLatin1Char('A'));
            QCOMPARE(out[1]->sortOrder(), 1);
        }
        qDeleteAll(out);
    }
}

void TestSerializer::labelSetFile()
{
    QTemporaryDir dir;
    Project p;
    Fixture::fillProject(&p);
    const QList<Label *> labels = p.timelineGroup()->timelines().first()->labels();
    const QString path = dir.filePath(QStringLiteral("scheme.kvtl"));
    QVERIFY(OVJsonSerializer(false).saveLabelSetFile(path, labels).isOk());
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray json = f.readAll();
    QVERIFY(json.startsWith("{\"labels\":["));
    QVERIFY(!json.contains("sortOrder"));
    QVERIFY(!json.contains("utterances"));
    QList<Label *> back;
    QVERIFY(OVJsonSerializer::loadLabelSetFile(path, &back).isOk());
    QCOMPARE(back.size(), labels.size());
    for (int i = 0; i < labels.size(); ++i) {
        QCOMPARE(back[i]->name(), labels[i]->name());
        QCOMPARE(back[i]->key(), labels[i]->key());
        QCOMPARE(back[i]->color(), labels[i]->color());
        QCOMPARE(back[i]->segmentCount(), labels[i]->segmentCount());
    }
    qDeleteAll(back);
    back.clear();
    const OV::Error missing
        = OVJsonSerializer::loadLabelSetFile(dir.filePath(QStringLiteral("none.kvtl")), &back);
    QVERIFY(!missing.isOk());
    QVERIFY(missing.message().startsWith(QStringLiteral("Failed to load labels from:\n")));
    QVERIFY(OVJsonSerializer(true).saveLabelSetFile(path, labels).isOk());
    QVERIFY(OVJsonSerializer::loadLabelSetFile(path, &back).isOk());
    QCOMPARE(back.size(), labels.size());
    qDeleteAll(back);
}

QTEST_GUILESS_MAIN(TestSerializer)
#include "tst_serializer.moc"
