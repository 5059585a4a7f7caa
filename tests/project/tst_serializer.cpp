#include "projectfixture.h"

#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/ovreadbudget.h"
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

#include <atomic>
#include <thread>
#include <vector>

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
    void heldOutWriters_data();
    void heldOutWriters();
    void strictRefusals_data();
    void strictRefusals();
    void failedReadLeavesTimeline();
    void labelSets_data();
    void labelSets();
    void labelSetFile();
    void budgetSharedByReaders();
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
    QTest::newRow("numbers") << QByteArray("{\"online_id\":42,\"project_type\":1,\"max_text_lw\":70.0,"
                                           "\"video_id\":7,\"userelpath\":false}");
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
}

// Documents as other tools write them: members in another order, other white space, numbers
// where text is usual, escapes, a byte order mark. All follow the format and must read as meant.
void TestSerializer::heldOutWriters_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("reordered, pretty, CRLF") << QByteArray(
        "{\r\n\t\"binary_data\" : [ ],\r\n\t\"labels\" : [\r\n\t\t{\r\n\t\t\t\"segments\" : [ { \"end\" : \"13.250\", "
        "\"start\" : \"12.500\", \"id\" : \"a\" },\r\n\t\t\t\t{ \"end\" : \"2147483647.000\", \"start\" : \"20\", "
        "\"desc\" : \"open\", \"id\" : \"b\" } ],\r\n\t\t\t\"key\" : \"65\", \"color\" : \"4278190335\",\r\n\t\t\t"
        "\"name\" : \"L\xc3\xa4\", \"id\" : \"l\"\r\n\t\t}\r\n\t],\r\n\t\"isBlind\" : \"1\",\r\n\t\"owner\" : \"anna\"\r\n}\r\n");
    QTest::newRow("numbers, escapes, BOM") << QByteArray(
        "\xef\xbb\xbf{\"owner\":\"anna\",\"isBlind\":1,\"labels\":[{\"id\":\"l\",\"name\":\"L\\u00e4\",\"color\":4278190335,"
        "\"key\":65,\"sortOrder\":0,\"segments\":[{\"id\":\"a\",\"desc\":\"\",\"start\":12.5,\"end\":13.25},"
        "{\"id\":\"b\",\"desc\":\"open\",\"start\":2e1,\"end\":2147483647}]}],\"utterances\":[],\"unknown\":{\"x\":[1]}}");
}

void TestSerializer::heldOutWriters()
{
    QFETCH(QByteArray, json);
    for (const QByteArray &doc : { json, wrapZlib(json) }) {
        Timeline t;
        QString why;
        QVERIFY2(OVJsonSerializer().readTimeline(doc, &t, nullptr, &why), qPrintable(why));
        QCOMPARE(t.owner(), QStringLiteral("anna"));
        QVERIFY(t.isBlind());
        QCOMPARE(t.labels().size(), 1);
        const Label *l = t.labels().first();
        QCOMPARE(l->id(), QStringLiteral("l"));
        QCOMPARE(l->name(), QStringLiteral("L\u00e4"));
        QCOMPARE(l->color(), QColor(Qt::blue));
        QCOMPARE(l->key(), QLatin1Char('A'));
        QCOMPARE(l->segment(QStringLiteral("a"))->start(), 12.5);
        QCOMPARE(l->segment(QStringLiteral("a"))->end(), 13.25);
        QCOMPARE(l->segment(QStringLiteral("b"))->start(), 20.0);
        QVERIFY(l->segment(QStringLiteral("b"))->isOpen());
        QCOMPARE(l->segment(QStringLiteral("b"))->description(), QStringLiteral("open"));
    }
}

// Damage that a tolerant reader used to turn into other content: each is refused, the message
// names the place and the check, and the target is left as it was.
void TestSerializer::strictRefusals_data()
{
    QTest::addColumn<int>("kind"); // 0 project, 1 timeline, 2 label set
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("reason");
    const auto seg = [](const char *segment) -> QByteArray {
        return QByteArray("{\"labels\":[{\"id\":\"l\",\"segments\":[") + segment + "]}]}";
    };
    QTest::newRow("trailing garbage") << 1 << QByteArray("{\"labels\":[]} x") << "not valid JSON";
    QTest::newRow("two objects") << 2 << QByteArray("{\"labels\":[]}{}") << "not valid JSON";
    QTest::newRow("duplicate member") << 1 << QByteArray("{\"owner\":\"a\",\"owner\":\"b\"}") << "not valid JSON";
    QTest::newRow("top-level list") << 2 << QByteArray("[{\"labels\":[]}]") << "the document is a list, not an object";
    QTest::newRow("no labels member") << 2 << QByteArray("{\"title\":\"x\"}") << "has no \"labels\"";
    QTest::newRow("word for a number") << 0 << QByteArray("{\"max_text_lw\":\"wide\"}")
                                       << "\"max_text_lw\" is not a whole number: \"wide\"";
    QTest::newRow("padded number") << 0 << QByteArray("{\"online_id\":\" 42 \"}")
                                   << "\"online_id\" is not a whole number: \" 42 \"";
    QTest::newRow("fraction") << 0 << QByteArray("{\"project_type\":1.5}")
                              << "\"project_type\" is not a whole number in range: 1.5";
    QTest::newRow("object for text") << 0 << QByteArray("{\"title\":{\"a\":1}}") << "\"title\" is an object, not text";
    QTest::newRow("number for text") << 1 << QByteArray("{\"owner\":5}") << "\"owner\" is a number, not text";
    QTest::newRow("object for a list") << 1 << QByteArray("{\"labels\":{\"a\":1}}")
                                       << "\"labels\" is an object, not a list";
    QTest::newRow("flag of 2") << 1 << QByteArray("{\"isBlind\":\"2\"}") << "\"isBlind\" is out of range: 2";
    QTest::newRow("timeline listed twice") << 0 << QByteArray("{\"timeline_ids\":[\"t\",\"u\",\"t\"]}")
                                           << "\"timeline_ids\" item 3 is \"t\", which is listed twice";
    QTest::newRow("end that is not a time") << 2 << seg("{\"id\":\"s\",\"start\":\"1.000\",\"end\":\"1x.000\"}")
                                            << "label 1 (id \"l\"), segment 1 (id \"s\"): \"end\" is not a time in "
                                               "seconds: \"1x.000\"";
    QTest::newRow("no end") << 2 << seg("{\"id\":\"s\",\"start\":\"1.000\"}")
                            << "label 1 (id \"l\"), segment 1 (id \"s\"): has no \"end\"";
    QTest::newRow("negative start") << 1 << seg("{\"id\":\"s\",\"start\":\"-1.000\",\"end\":\"1.000\"}")
                                    << "label 1 (id \"l\"), segment 1 (id \"s\"): \"start\" is not a possible time: -1.000";
    QTest::newRow("end before start") << 2 << seg("{\"id\":\"s\",\"start\":3,\"end\":\"2.5\"}")
                                      << "label 1 (id \"l\"), segment 1 (id \"s\"): \"end\" 2.500 is before \"start\" 3.000";
    QTest::newRow("segment without id") << 2 << seg("{\"start\":\"1.000\",\"end\":\"2.000\"}")
                                        << "label 1 (id \"l\"), segment 1: has no \"id\"";
    QTest::newRow("name not UTF-8") << 2 << QByteArray("{\"labels\":[{\"id\":\"l\",\"name\":\"B\xff\"}]}")
                                    << "label 1 (id \"l\"): \"name\" is not valid UTF-8";
    QTest::newRow("raw tab in a text") << 2 << QByteArray("{\"labels\":[{\"id\":\"l\",\"name\":\"a\tb\"}]}")
                                       << "a control character inside a text";
    QTest::newRow("label without id") << 2 << QByteArray("{\"labels\":[{\"name\":\"A\"}]}") << "label 1: has no \"id\"";
    QTest::newRow("two labels, one id") << 2 << QByteArray("{\"labels\":[{\"id\":\"l\",\"name\":\"A\"},{\"id\":\"l\"}]}")
                                        << "label 2 (id \"l\"): the id is used by an earlier label";
    QTest::newRow("segment id in two labels")
        << 1 << QByteArray("{\"labels\":[{\"id\":\"l\",\"segments\":[{\"id\":\"s\",\"start\":1,\"end\":2}]},"
                           "{\"id\":\"m\",\"segments\":[{\"id\":\"s\",\"start\":1,\"end\":2}]}]}")
        << "label 2 (id \"m\"), segment 1 (id \"s\"): the id is used by an earlier segment";
    QTest::newRow("key beyond 16 bits") << 2 << QByteArray("{\"labels\":[{\"id\":\"l\",\"key\":\"70000\"}]}")
                                        << "label 1 (id \"l\"): \"key\" is out of range: 70000";
    QTest::newRow("utterance backwards")
        << 1 << QByteArray("{\"utterances\":[{\"id\":\"u\",\"startTime\":\"2.000\",\"endTime\":\"1.000\"}]}")
        << "utterance 1 (id \"u\"): \"endTime\" 1.000 is before \"startTime\" 2.000";
    QTest::newRow("attachment not base64") << 1 << QByteArray("{\"binary_data\":[{\"key\":\"k\",\"data\":\"@@\"}]}")
                                           << "attachment 1 (key \"k\"): \"data\" is not base64";
    QTest::newRow("hidden twice") << 1 << QByteArray("{\"hidden_segments\":[\"x\",\"x\"]}")
                                  << "\"hidden_segments\" item 2 is \"x\", which is listed twice";
}

void TestSerializer::strictRefusals()
{
    QFETCH(int, kind);
    QFETCH(QByteArray, json);
    QFETCH(QString, reason);
    Project p;
    Fixture::fillProject(&p);
    Timeline *t = p.timelineGroup()->timelines().first();
    const QString projectBefore = p.contentHash();
    const QString timelineBefore = t->contentHash();
    for (const QByteArray &doc : { json, OVJsonSerializer::wrap(json) }) {
        QString why;
        QList<Label *> labels;
        bool read = true;
        if (kind == 0)
            read = OVJsonSerializer().readProject(doc, &p, nullptr, &why);
        else if (kind == 1)
            read = OVJsonSerializer().readTimeline(doc, t, nullptr, &why);
        else
            read = OVJsonSerializer().readLabelSet(doc, &labels, nullptr, &why);
        QVERIFY(!read);
        QVERIFY2(why.startsWith(reason), qPrintable(why));
        QVERIFY(labels.isEmpty());
        QCOMPARE(p.contentHash(), projectBefore);
        QCOMPARE(t->contentHash(), timelineBefore);
        QCOMPARE(t->labels().size(), 4);
    }
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
    QTest::addColumn<int>("labels");
    QTest::addColumn<int>("segments");
    QTest::newRow("no segments") << QByteArray(
        "{\"labels\":[{\"id\":\"a\",\"name\":\"A\",\"key\":\"65\",\"color\":"
        "\"4278190335\"},{\"id\":\"b\",\"name\":\"B\"}]}")
                                 << 2 << 0;
    QTest::newRow("with segments") << QByteArray(
        "{\"labels\":[{\"id\":\"a\",\"segments\":[{\"id\":\"s\",\"start\":"
        "\"1.000\",\"end\":\"2.000\"}]}]}")
                                   << 1 << 1;
    QTest::newRow("empty list") << QByteArray("{\"labels\":[]}") << 0 << 0;
}

void TestSerializer::labelSets()
{
    QFETCH(QByteArray, json);
    QFETCH(int, labels);
    QFETCH(int, segments);
    for (const QByteArray &doc : { json, OVJsonSerializer::wrap(json) }) {
        QList<Label *> out;
        QVERIFY(OVJsonSerializer().readLabelSet(doc, &out));
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

void TestSerializer::budgetSharedByReaders()
{
    // The timelines of one load are read side by side from one budget: when it runs out under
    // all of them at once, each reader reports the same, whole reason.
    const QString reason = QStringLiteral("more than %1 segments").arg(OVReadBudget::MaxSegments);
    constexpr int Readers = 4;
    for (int round = 0; round < 50; ++round) {
        OVReadBudget budget(0);
        std::atomic<int> ready { 0 };
        QString seen[Readers];
        std::vector<std::thread> readers;
        for (int i = 0; i < Readers; ++i) {
            readers.emplace_back([&, i] {
                ++ready;
                while (ready.load() < Readers) { }
                while (budget.takeSegments(997)) { }
                seen[i] = budget.why();
            });
        }
        for (std::thread &t : readers)
            t.join();
        for (const QString &s : seen)
            QCOMPARE(s, reason);
    }
}

QTEST_GUILESS_MAIN(TestSerializer)
#include "tst_serializer.moc"
