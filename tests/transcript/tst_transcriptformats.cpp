#include "project/history.h"
#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/utterance.h"
#include "transcript/ovtranscriptfile.h"
#include "transcript/ovtranscripthistory.h"
#include "transcript/ovtranscriptimport.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace OVProject;
using Row = OVTranscriptData::Row;
using Rows = QList<Row>;
Q_DECLARE_METATYPE(OVTranscriptFile::Format)

namespace {

// Every format keeps whole milliseconds.
Rows rounded(Rows rows)
{
    for (Row &r : rows) {
        r.start = OVTranscriptInput::toMilliseconds(r.start);
        r.end = OVTranscriptInput::toMilliseconds(r.end);
    }
    return rows;
}

QByteArray utf16(const QString &text)
{
    return QByteArray("\xFF\xFE") + QByteArray(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
}

QString describe(const Rows &rows)
{
    QStringList out;
    for (const Row &r : rows)
        out << QStringLiteral("[%1|%2|%3|%4|%5]").arg(r.tier).arg(r.start, 0, 'f', 3).arg(r.end, 0, 'f', 3).arg(r.text).arg(r.kind);
    return out.join(QLatin1Char('\n'));
}

QString utteranceState(const Timeline *t)
{
    QStringList out;
    for (const Utterance *u : t->utterances())
        out << QStringLiteral("%1|%2|%3|%4|%5").arg(u->id(), u->speaker(), u->text()).arg(u->startTime()).arg(u->endTime());
    return out.join(QLatin1Char('\n'));
}

QString segmentState(const Timeline *t)
{
    QStringList out;
    for (const Label *l : t->labels()) {
        QStringList segs;
        for (const Segment *s : l->segments())
            segs << QStringLiteral("%1 %2 %3").arg(s->start(), 0, 'f', 3).arg(s->end(), 0, 'f', 3).arg(s->description());
        segs.sort();
        out << l->name() + QLatin1String(": ") + segs.join(QLatin1String(", "));
    }
    return out.join(QLatin1Char('\n'));
}

} // namespace

// Transcript files through our own writers and readers, files of other tools, and damaged files.
class TstTranscriptFormats : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { QVERIFY(m_dir.isValid()); }
    void csvRoundTrip_data();
    void csvRoundTrip();
    void roundTrip_data();
    void roundTrip();
    void otherToolsFiles_data();
    void otherToolsFiles();
    void damagedFilesRefused_data();
    void damagedFilesRefused();
    void eafStaysWellFormed();
    void importUndoRestoresExactly();
    void codingProjectThroughEaf();

private:
    QString write(const QString &name, const QByteArray &bytes)
    {
        const QString path = m_dir.filePath(name);
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
            qFatal("cannot write %s", qPrintable(path));
        return path;
    }
    QTemporaryDir m_dir;
};

void TstTranscriptFormats::csvRoundTrip_data()
{
    QTest::addColumn<Rows>("rows");
    QTest::addColumn<QString>("mustContain");
    QTest::newRow("quotes and commas")
        << Rows { { QStringLiteral("Ana"), 1.0, 2.5, QStringLiteral("She said \"no, never\", then left") } }
        << QStringLiteral("\"She said \"\"no, never\"\", then left\"");
    QTest::newRow("line breaks inside text")
        << Rows { { QStringLiteral("Bob"), 0.0, 1.0, QStringLiteral("first\nsecond\r\nthird") }, { QStringLiteral("Ana"), 1.0, 2.0, QStringLiteral("after") } }
        << QStringLiteral("\"first\nsecond");
    QTest::newRow("non-ASCII speakers")
        << Rows { { QStringLiteral("Žofie Dvořáková"), 3.0, 4.0, QStringLiteral("ahoj") }, { QStringLiteral("山田"), 4.0, 5.0, QStringLiteral("こんにちは") } }
        << QStringLiteral("Žofie Dvořáková");
    QTest::newRow("times keep three decimals")
        << Rows { { QStringLiteral("Ana"), 12.3, 3600.001, QStringLiteral("x") } }
        << QStringLiteral("12.300,3600.001,00:00:12.300,01:00:00.001");
    QTest::newRow("empty transcript") << Rows {} << QStringLiteral("Start,End,Start Time,End Time,Speaker,Text\r\n");
    QTest::newRow("empty speaker and text")
        << Rows { { QString(), 0.5, 0.5, QString() } } << QStringLiteral("0.500,0.500");
}

void TstTranscriptFormats::csvRoundTrip()
{
    QFETCH(Rows, rows);
    QFETCH(QString, mustContain);
    const QString path = m_dir.filePath(QStringLiteral("t.csv"));
    QVERIFY(OVTranscriptFile::write(path, OVTranscriptFile::Csv, { rows }).isOk());
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray bytes = f.readAll();
    QVERIFY(bytes.startsWith("\xEF\xBB\xBF"));
    QVERIFY2(QString::fromUtf8(bytes).contains(mustContain), bytes.constData());

    OVTranscriptData back;
    OVTranscriptReport report;
    const OV::Error e = OVTranscriptFile::read(path, &back, &report);
    QVERIFY2(e.isOk(), qPrintable(e.message()));
    QCOMPARE(describe(back.rows), describe(rounded(rows)));
    QCOMPARE(report.read, rows.size());
    QCOMPARE(report.skipped, 0);
}

void TstTranscriptFormats::roundTrip_data()
{
    QTest::addColumn<OVTranscriptFile::Format>("format");
    QTest::addColumn<Rows>("rows");
    const Rows speech {
        { QStringLiteral("Ana"), 0.25, 2.0, QStringLiteral("Hello <there> & \"you\"") },
        { QStringLiteral("Bob Šťastný"), 1.5, 3.125, QStringLiteral("two\nlines") },
        { QStringLiteral("Ana"), 2.5, 4.0, QStringLiteral("overlaps her own line? no: after it") },
        { QStringLiteral("Ana"), 3.0, 3.5, QStringLiteral("this one overlaps") },
        { QStringLiteral("Bob Šťastný"), 3661.007, 3662.0, QStringLiteral("an hour later") },
    };
    for (auto f : { OVTranscriptFile::Srt, OVTranscriptFile::Vtt, OVTranscriptFile::TextGrid, OVTranscriptFile::Eaf })
        QTest::newRow(qPrintable(OVTranscriptFile::extension(f))) << f << speech;
    QTest::newRow("eaf labels and speech")
        << OVTranscriptFile::Eaf
        << Rows { { QStringLiteral("Ana"), 1, 2, QStringLiteral("hi") }, { QStringLiteral("Gaze"), 0.5, 1.5, QString(), OVTranscriptData::Labels },
               { QStringLiteral("Gaze"), 1.0, 3.0, QStringLiteral("overlapping, with a note"), OVTranscriptData::Labels },
               { QStringLiteral("Ana"), 2.0, 2.5, QStringLiteral("a label named like a speaker"), OVTranscriptData::Labels } };
}

void TstTranscriptFormats::roundTrip()
{
    QFETCH(OVTranscriptFile::Format, format);
    QFETCH(Rows, rows);
    const QString path = m_dir.filePath(QStringLiteral("t.") + OVTranscriptFile::extension(format));
    qint64 leftOut = -1;
    QVERIFY(OVTranscriptFile::write(path, format, { rows }, QString(), {}, &leftOut).isOk());
    QCOMPARE(leftOut, 0);
    OVTranscriptData back;
    OVTranscriptReport report;
    const OV::Error e = OVTranscriptFile::read(path, &back, &report);
    QVERIFY2(e.isOk(), qPrintable(e.message()));
    Rows expected = rounded(rows);
    std::stable_sort(expected.begin(), expected.end(), [](const Row &a, const Row &b) { return a.kind != b.kind ? a.kind < b.kind : a.start < b.start; });
    std::stable_sort(back.rows.begin(), back.rows.end(), [](const Row &a, const Row &b) { return a.kind != b.kind ? a.kind < b.kind : a.start < b.start; });
    QCOMPARE(describe(back.rows), describe(expected));
}

void TstTranscriptFormats::otherToolsFiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Rows>("expected");
    QTest::addColumn<qint64>("skipped");
    QTest::newRow("TextGrid short form, point tier")
        << "short.TextGrid"
        << QByteArray("File type = \"ooTextFile\"\nObject class = \"TextGrid\"\n\n0\n3\n<exists>\n2\n"
                      "\"IntervalTier\"\n\"Mia\"\n0\n3\n3\n0\n1\n\"\"\n1\n2.5\n\"a \"\"quoted\"\" word\"\n2.5\n3\n\"\"\n"
                      "\"TextTier\"\n\"events\"\n0\n3\n1\n1.2\n\"click\"\n")
        << Rows { { QStringLiteral("Mia"), 1, 2.5, QStringLiteral("a \"quoted\" word") } } << qint64(1);
    QTest::newRow("TextGrid long form in UTF-16 as Praat saves it")
        << "long.TextGrid"
        << utf16(QStringLiteral("File type = \"ooTextFile\"\r\nObject class = \"TextGrid\"\r\n\r\nxmin = 0 \r\nxmax = 2 \r\n"
                                "tiers? <exists> \r\nsize = 1 \r\nitem []: \r\n    item [1]:\r\n        class = \"IntervalTier\" \r\n"
                                "        name = \"Zoë\" \r\n        xmin = 0 \r\n        xmax = 2 \r\n        intervals: size = 1 \r\n"
                                "        intervals [1]:\r\n            xmin = 0.5 \r\n            xmax = 2 \r\n            text = \"ça va\" \r\n"))
        << Rows { { QStringLiteral("Zoë"), 0.5, 2, QStringLiteral("ça va") } } << qint64(0);
    QTest::newRow("WebVTT of a captioning tool")
        << "c.vtt"
        << QByteArray("WEBVTT - made elsewhere\nKind: captions\n\nNOTE a comment\nthat spans lines\n\nSTYLE\n::cue { color: red }\n\n"
                      "intro\n00:01.000 --> 00:02.500 align:start\n<v.loud Dr. Ng>Take <i>this</i> &amp; that</v>\n\n"
                      "00:00:03.000 --> 00:00:04.000\n<c.yellow>no speaker</c>\n\n00:00:05.000 --> 00:00:06.000\n<v Ana></v>\n")
        << Rows { { QStringLiteral("Dr. Ng"), 1, 2.5, QStringLiteral("Take this & that") }, { QString(), 3, 4, QStringLiteral("no speaker") } }
        << qint64(1);
    QTest::newRow("SubRip without numbers, CRLF")
        << "n.srt"
        << QByteArray("00:00:01,000 --> 00:00:02,000 X1:10 X2:20\r\nJo: hi\r\nthere\r\n\r\n2\r\n00:00:02,500 --> 00:00:03,000\r\n\r\n")
        << Rows { { QStringLiteral("Jo"), 1, 2, QStringLiteral("hi\nthere") } } << qint64(1);
    QTest::newRow("EAF with referring tiers and an unaligned slot")
        << "r.eaf"
        << QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ANNOTATION_DOCUMENT FORMAT=\"3.0\" VERSION=\"3.0\">\n"
                      "<HEADER TIME_UNITS=\"milliseconds\"/>\n<TIME_ORDER><TIME_SLOT TIME_SLOT_ID=\"t1\" TIME_VALUE=\"1000\"/>"
                      "<TIME_SLOT TIME_SLOT_ID=\"t2\"/><TIME_SLOT TIME_SLOT_ID=\"t3\" TIME_VALUE=\"3000\"/></TIME_ORDER>\n"
                      "<TIER TIER_ID=\"K\" PARTICIPANT=\"Kim\" LINGUISTIC_TYPE_REF=\"default\">"
                      "<ANNOTATION><ALIGNABLE_ANNOTATION ANNOTATION_ID=\"a1\" TIME_SLOT_REF1=\"t1\" TIME_SLOT_REF2=\"t2\"><ANNOTATION_VALUE>one</ANNOTATION_VALUE></ALIGNABLE_ANNOTATION></ANNOTATION>"
                      "<ANNOTATION><ALIGNABLE_ANNOTATION ANNOTATION_ID=\"a2\" TIME_SLOT_REF1=\"t2\" TIME_SLOT_REF2=\"t3\"><ANNOTATION_VALUE>two</ANNOTATION_VALUE></ALIGNABLE_ANNOTATION></ANNOTATION></TIER>\n"
                      "<TIER TIER_ID=\"words\" PARENT_REF=\"K\" LINGUISTIC_TYPE_REF=\"sub\">"
                      "<ANNOTATION><REF_ANNOTATION ANNOTATION_ID=\"a4\" ANNOTATION_REF=\"a2\" PREVIOUS_ANNOTATION=\"a3\"><ANNOTATION_VALUE>b</ANNOTATION_VALUE></REF_ANNOTATION></ANNOTATION>"
                      "<ANNOTATION><REF_ANNOTATION ANNOTATION_ID=\"a3\" ANNOTATION_REF=\"a2\"><ANNOTATION_VALUE>a</ANNOTATION_VALUE></REF_ANNOTATION></ANNOTATION>"
                      "<ANNOTATION><REF_ANNOTATION ANNOTATION_ID=\"a5\" ANNOTATION_REF=\"a1\"><ANNOTATION_VALUE> </ANNOTATION_VALUE></REF_ANNOTATION></ANNOTATION></TIER>\n"
                      "</ANNOTATION_DOCUMENT>\n")
        << Rows { { QStringLiteral("Kim"), 1, 2, QStringLiteral("one") }, { QStringLiteral("Kim"), 2, 3, QStringLiteral("two") },
               { QStringLiteral("words"), 2, 2.5, QStringLiteral("a") }, { QStringLiteral("words"), 2.5, 3, QStringLiteral("b") } }
        << qint64(1);
}

void TstTranscriptFormats::otherToolsFiles()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, bytes);
    QFETCH(Rows, expected);
    QFETCH(qint64, skipped);
    OVTranscriptData data;
    OVTranscriptReport report;
    const OV::Error e = OVTranscriptFile::read(write(name, bytes), &data, &report);
    QVERIFY2(e.isOk(), qPrintable(e.message()));
    std::stable_sort(data.rows.begin(), data.rows.end(), [](const Row &a, const Row &b) { return a.start < b.start; });
    QCOMPARE(describe(data.rows), describe(expected));
    QCOMPARE(report.skipped, skipped);
}

void TstTranscriptFormats::damagedFilesRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");
    const QByteArray header("Start,End,Speaker,Text\r\n");
    QTest::newRow("csv unclosed quote") << "a.csv" << header + "1,2,Ana,ok\r\n2,3,Bob,\"never\r\nclosed\r\n" << "line 3: a quoted field is not closed";
    QTest::newRow("csv text after a quote") << "b.csv" << header + "1,2,Ana,\"x\"y\r\n" << "line 2: text after a closing quote";
    QTest::newRow("csv bad time after a multi-line field")
        << "c.csv" << header + "1,2,Ana,\"a\nb\"\r\n1.5s,2,Ana,x\r\n" << "line 4: \"1.5s\" in the column \"Start\" is not a time";
    QTest::newRow("csv ends before it starts") << "d.csv" << header + "5,4,Ana,x\r\n" << "line 2: the utterance ends";
    QTest::newRow("csv missing field") << "e.csv" << header + "1,2,Ana,x\r\n1,2,Ana\r\n" << "line 3: 3 fields where the header has 4";
    QTest::newRow("csv without header") << "f.csv" << QByteArray("1,2,Ana,x\r\n") << "line 1: the header needs";
    QTest::newRow("csv not UTF-8") << "g.csv" << header + "1,2,\xFF\xFE\xFD,x\r\n" << "not UTF-8";
    QTest::newRow("srt bad timing") << "a.srt" << QByteArray("1\n00:00:01,000 --> 00:00:02,000\nok\n\n2\n00:00:03 --> 00:00:04,000\nx\n") << "line 6:";
    QTest::newRow("srt stray text") << "b.srt" << QByteArray("hello\nworld\n") << "line 1: expected a cue number";
    QTest::newRow("vtt without signature") << "a.vtt" << QByteArray("00:01.000 --> 00:02.000\nx\n") << "line 1: a WebVTT file begins";
    QTest::newRow("vtt identifier only") << "b.vtt" << QByteArray("WEBVTT\n\nlonely\n") << "line 3: a cue identifier without";
    QTest::newRow("textgrid truncated")
        << "a.TextGrid" << QByteArray("File type = \"ooTextFile\"\nObject class = \"TextGrid\"\n0\n3\n<exists>\n1\n\"IntervalTier\"\n\"A\"\n0\n3\n2\n0\n1\n\"x\"\n") << "line 14: the file ends before a number for xmin";
    QTest::newRow("textgrid huge count")
        << "b.TextGrid" << QByteArray("File type = \"ooTextFile\"\nObject class = \"TextGrid\"\n0\n3\n<exists>\n1\n\"IntervalTier\"\n\"A\"\n0\n3\n99999999999\n") << "line 11:";
    QTest::newRow("textgrid other object") << "c.TextGrid" << QByteArray("File type = \"ooTextFile\"\nObject class = \"Sound\"\n") << "not a TextGrid";
    QTest::newRow("eaf malformed") << "a.eaf" << QByteArray("<ANNOTATION_DOCUMENT>\n<TIER TIER_ID=\"x\">\n</ANNOTATION_DOCUMENT>\n") << "line 3:";
    QTest::newRow("eaf dangling reference")
        << "b.eaf"
        << QByteArray("<ANNOTATION_DOCUMENT>\n<TIER TIER_ID=\"x\">\n<ANNOTATION><REF_ANNOTATION ANNOTATION_ID=\"a1\" ANNOTATION_REF=\"zz\"><ANNOTATION_VALUE>v</ANNOTATION_VALUE></REF_ANNOTATION></ANNOTATION>\n</TIER>\n</ANNOTATION_DOCUMENT>\n")
        << "line 3: annotation a1 refers to zz";
    QTest::newRow("eaf reference cycle")
        << "c.eaf"
        << QByteArray("<ANNOTATION_DOCUMENT><TIER TIER_ID=\"x\">\n<ANNOTATION><REF_ANNOTATION ANNOTATION_ID=\"a1\" ANNOTATION_REF=\"a2\"><ANNOTATION_VALUE>v</ANNOTATION_VALUE></REF_ANNOTATION></ANNOTATION>\n"
                      "<ANNOTATION><REF_ANNOTATION ANNOTATION_ID=\"a2\" ANNOTATION_REF=\"a1\"><ANNOTATION_VALUE>v</ANNOTATION_VALUE></REF_ANNOTATION></ANNOTATION>\n</TIER></ANNOTATION_DOCUMENT>\n")
        << "refers to itself";
    QTest::newRow("eaf missing slot")
        << "d.eaf"
        << QByteArray("<ANNOTATION_DOCUMENT><TIER TIER_ID=\"x\">\n<ANNOTATION><ALIGNABLE_ANNOTATION ANNOTATION_ID=\"a1\" TIME_SLOT_REF1=\"t1\" TIME_SLOT_REF2=\"t2\"><ANNOTATION_VALUE>v</ANNOTATION_VALUE></ALIGNABLE_ANNOTATION></ANNOTATION>\n</TIER></ANNOTATION_DOCUMENT>\n")
        << "line 2: annotation a1 uses a time slot that does not exist";
    QTest::newRow("not XML at all") << "e.eaf" << QByteArray("Start,End\n") << "line 1:";
}

void TstTranscriptFormats::damagedFilesRefused()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    const QString path = write(name, bytes);
    // What was there before stays: the refused file changes nothing.
    OVTranscriptData data { { { QStringLiteral("keep"), 1, 2, QStringLiteral("me") } } };
    const OVTranscriptData before = data;
    const OV::Error e = OVTranscriptFile::read(path, &data, nullptr);
    QVERIFY(!e.isOk());
    QVERIFY2(e.message().contains(QFileInfo(path).fileName()), qPrintable(e.message()));
    QVERIFY2(e.message().contains(reason), qPrintable(e.message()));
    QCOMPARE(describe(data.rows), describe(before.rows));
}

void TstTranscriptFormats::eafStaysWellFormed()
{
    // Control characters come in through CSV and SubRip, which allow them; XML does not.
    const QString path = m_dir.filePath(QStringLiteral("c.eaf"));
    QVERIFY(OVTranscriptFile::write(path, OVTranscriptFile::Eaf,
        { { { QStringLiteral("A\x02"), 1, 2, QStringLiteral("\x01" "bell\x0b" " ring\t\uFFFF") } } }).isOk());
    OVTranscriptData back;
    const OV::Error e = OVTranscriptFile::read(path, &back, nullptr);
    QVERIFY2(e.isOk(), qPrintable(e.message()));
    QCOMPARE(describe(back.rows), describe({ { QStringLiteral("A"), 1, 2, QStringLiteral("bell ring\t") } }));
}

void TstTranscriptFormats::importUndoRestoresExactly()
{
    Project p;
    Timeline *t = p.startNew(QStringLiteral("alice"));
    OVTranscriptHistory h;
    h.setProject(&p);
    QVERIFY(h.addUtterance(t, 5, 6, QStringLiteral("Old"), QStringLiteral("second")));
    QVERIFY(h.addUtterance(t, 1, 2, QStringLiteral("Old"), QStringLiteral("first, added later")));
    p.history()->setClean();
    const QString before = utteranceState(t);
    const QString segmentsBefore = segmentState(t);

    const QString path = write(QStringLiteral("in.srt"), "1\n00:00:00,500 --> 00:00:01,000\nAna: new\n\n2\n00:00:02,000 --> 00:00:03,000\nBob: newer\n");
    OVTranscriptData data;
    OVTranscriptReport report;
    QVERIFY(OVTranscriptFile::read(path, &data, &report).isOk());
    OVTranscriptImport::Result result;
    QString why;
    QVERIFY(OVTranscriptImport::apply(&p, t, data, OVTranscriptImport::Utterances, &result, &report, &why));
    QCOMPARE(result.utterances, 2);
    QCOMPARE(t->utterances().size(), 2);
    QVERIFY(!p.history()->isClean());
    QVERIFY(p.history()->undo());
    QCOMPARE(utteranceState(t), before);
    QVERIFY(p.history()->isClean());

    // As labels: "Ana" and "Bob" become labels beside the four default ones, undone as one step.
    QVERIFY(OVTranscriptImport::apply(&p, t, data, OVTranscriptImport::Labels, &result, &report, &why));
    QCOMPARE(result.labelsAdded, 2);
    QCOMPARE(result.segments, 2);
    QCOMPARE(t->labels().size(), 6);
    QCOMPARE(t->labels().at(4)->name(), QStringLiteral("Ana"));
    QVERIFY(p.history()->undo());
    QCOMPARE(segmentState(t), segmentsBefore);
    QCOMPARE(utteranceState(t), before);
}

void TstTranscriptFormats::codingProjectThroughEaf()
{
    Project p;
    Timeline *t = p.startNew(QStringLiteral("alice"));
    OVTranscriptHistory h;
    h.setProject(&p);
    QVERIFY(h.addUtterance(t, 1, 2, QStringLiteral("Ana"), QStringLiteral("hi")));
    t->labels().at(0)->addSegment(new Segment(0.5, 1.25, BaseNode::newId()));
    t->labels().at(0)->addSegment(new Segment(1.0, 3.0, BaseNode::newId()));
    t->labels().at(1)->addSegment(new Segment(4.0, Segment::OpenEnd, BaseNode::newId()));
    qint64 open = 0;
    const OVTranscriptData out = OVTranscriptFile::fromTimeline(t, true, &open);
    QCOMPARE(open, 1);
    const QString path = m_dir.filePath(QStringLiteral("project.eaf"));
    QVERIFY(OVTranscriptFile::write(path, OVTranscriptFile::Eaf, out).isOk());

    Project q;
    Timeline *u = q.startNew(QStringLiteral("bob"));
    OVTranscriptData in;
    OVTranscriptReport report;
    QVERIFY(OVTranscriptFile::read(path, &in, &report).isOk());
    QString why;
    OVTranscriptImport::Result result;
    QVERIFY(OVTranscriptImport::apply(&q, u, in, OVTranscriptImport::Labels, &result, &report, &why));
    // The segments land in the label of the same name; the utterance is reported, not coded.
    QCOMPARE(result.labelsAdded, 0);
    QCOMPARE(result.segments, 2);
    QCOMPARE(report.skipped, 1);
    QCOMPARE(segmentState(u).section(QLatin1Char('\n'), 0, 0), QStringLiteral("Label 1: 0.500 1.250 , 1.000 3.000 "));
    QVERIFY(OVTranscriptImport::apply(&q, u, in, OVTranscriptImport::Utterances, &result, &report, &why));
    QCOMPARE(utteranceState(u).section(QLatin1Char('|'), 1), QStringLiteral("Ana|hi|1|2"));
}

QTEST_GUILESS_MAIN(TstTranscriptFormats)
#include "tst_transcriptformats.moc"
