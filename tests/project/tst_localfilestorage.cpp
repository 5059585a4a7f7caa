#include "projectfixture.h"

#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovprojectcontainer.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QtEndian>

#include <zip.h>


using namespace OVProject;

namespace {
QByteArray readFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

QByteArray flipped(QByteArray bytes, qsizetype at, char mask)
{
    bytes[at] = char(bytes[at] ^ mask);
    return bytes;
}

// The entries of a saved project file, all in memory.
OVProjectContainer::Entries entriesOf(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    OVProjectContainer::Entries entries;
    OVProjectContainer::read(&buffer, &entries);
    return entries;
}

QByteArray containerOf(const QMap<QString, QByteArray> &entries)
{
    QList<OVProjectContainer::WriteEntry> list;
    for (auto it = entries.cbegin(); it != entries.cend(); ++it)
        list.append({ it.key(), it.value() });
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    OVProjectContainer::write(&buffer, list);
    return buffer.data();
}

// The video path as written into the file's project document.
QString storedVideoPath(const QString &path)
{
    QMap<QString, QByteArray> docs;
    Project header;
    if (!OVLocalFileStorage::readDocuments(path, &docs).isOk()
        || !OVJsonSerializer().readProject(docs.value(QStringLiteral("project.json")), &header))
        return QStringLiteral("<unreadable>");
    return header.videoPath();
}

QMap<QString, QByteArray> documentsOf(const Project &p, bool compress)
{
    OVJsonSerializer s(compress);
    QMap<QString, QByteArray> docs;
    docs.insert(QStringLiteral("project.json"), s.writeProject(&p));
    for (const Timeline *t : p.timelineGroup()->timelines())
        docs.insert(QStringLiteral("timelines/%1.json").arg(t->id()), s.writeTimeline(t));
    return docs;
}
} // namespace

class TestLocalFileStorage : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void roundTripOnDisk_data();
    void roundTripOnDisk();
    void containerLayout();
    void relativeVideoPath();
    void badFilesFailAndLeaveTarget_data();
    void badFilesFailAndLeaveTarget();
    void zipFormLoads();
    void embeddedVideoIsCarried();
    void failedSaveKeepsOldFile();
    void backupsKeepLastFive();

private:
    QTemporaryDir m_dir;
};

void TestLocalFileStorage::init() { QVERIFY(m_dir.isValid()); }

void TestLocalFileStorage::roundTripOnDisk_data()
{
    QTest::addColumn<bool>("compress");
    QTest::newRow("compressed") << true;
    QTest::newRow("plain") << false;
}

void TestLocalFileStorage::roundTripOnDisk()
{
    // Timelines are written and read on several threads; the file and the group keep the
    // project's order whatever finishes first.
    QFETCH(bool, compress);
    Project p;
    Fixture::fillProject(&p);
    for (int i = 0; i < 9; ++i) {
        Timeline *t = p.createTimeline(QStringLiteral("user%1").arg(i));
        for (int j = 0; j < (9 - i) * 300; ++j)
            t->labels().at(j % 4)->addSegment(new Segment(j, j + 0.5));
    }
    const QString path = m_dir.filePath(QStringLiteral("round-%1.kvpr").arg(compress));
    OVLocalFileStorage storage;
    storage.setCompression(compress);
    QVERIFY(storage.save(path, &p).isOk());
    const auto entries = entriesOf(readFile(path));
    QCOMPARE(entries.size(), 12);
    for (const auto &e : entries)
        QCOMPARE(OVJsonSerializer::isWrapped(e.data), compress);

    Project back;
    const OV::Error err = OVLocalFileStorage().load(path, &back);
    QVERIFY2(err.isOk(), qPrintable(err.message()));
    QCOMPARE(Fixture::difference(&p, &back), QString());
    for (const Timeline *t : back.timelineGroup()->timelines()) {
        // Views of the loaded project hear changes through its group.
        QCOMPARE(t->parent(), back.timelineGroup());
        QCOMPARE(t->thread(), QThread::currentThread());
        for (const Segment *s : t->labels().first()->segments())
            QCOMPARE(s->thread(), QThread::currentThread());
    }
}

void TestLocalFileStorage::containerLayout()
{
    Project p;
    p.startNew(QStringLiteral("x"));
    const QString path = m_dir.filePath(QStringLiteral("layout.kvpr"));
    QVERIFY(OVLocalFileStorage().save(path, &p).isOk());
    const QByteArray bytes = readFile(path);
    QVERIFY(bytes.startsWith("OV1"));
    // Walk it by hand: name lengths and data lengths are big-endian; names in map order.
    int pos = 3;
    QStringList names;
    QCryptographicHash md5(QCryptographicHash::Md5);
    while (true) {
        const quint16 nameLen = qFromBigEndian<quint16>(bytes.constData() + pos);
        pos += 2;
        if (nameLen == 0xFFFF)
            break;
        const QByteArray name = bytes.mid(pos, nameLen);
        pos += nameLen;
        const quint32 dataLen = qFromBigEndian<quint32>(bytes.constData() + pos);
        pos += 4;
        md5.addData(name);
        md5.addData(bytes.mid(pos, dataLen));
        pos += int(dataLen);
        names.append(QString::fromUtf8(name));
    }
    QCOMPARE(bytes.size(), pos + 16);
    QCOMPARE(bytes.mid(pos), md5.result());
    const Id tid = p.timelineGroup()->timelines().first()->id();
    QCOMPARE(names,
        (QStringList { QStringLiteral("project.json"), QStringLiteral("timelines/") + tid + ".json" }));
}

void TestLocalFileStorage::relativeVideoPath()
{
    QDir(m_dir.path()).mkpath(QStringLiteral("proj/media"));
    const QString video = m_dir.filePath(QStringLiteral("proj/media/clip.mp4"));
    const QString path = m_dir.filePath(QStringLiteral("proj/rel.kvpr"));
    Project p;
    p.startNew(QStringLiteral("x"));
    p.setVideoPath(video);
    QVERIFY(OVLocalFileStorage().save(path, &p).isOk());
    QCOMPARE(p.videoPath(), video); // the open project keeps its absolute path
    QCOMPARE(storedVideoPath(path), QStringLiteral("media/clip.mp4"));
    Project back;
    QVERIFY(OVLocalFileStorage().load(path, &back).isOk());
    QCOMPARE(back.videoPath(), video);

    // Moving the project folder keeps the video found.
    QVERIFY(QDir(m_dir.path()).rename(QStringLiteral("proj"), QStringLiteral("moved")));
    QVERIFY(OVLocalFileStorage().load(m_dir.filePath(QStringLiteral("moved/rel.kvpr")), &back).isOk());
    QCOMPARE(back.videoPath(), m_dir.filePath(QStringLiteral("moved/media/clip.mp4")));

    // With relative paths off the path is stored as given.
    p.setUseRelativePath(false);
    const QString absolute = m_dir.filePath(QStringLiteral("moved/abs.kvpr"));
    QVERIFY(OVLocalFileStorage().save(absolute, &p).isOk());
    QCOMPARE(storedVideoPath(absolute), video);
}

void TestLocalFileStorage::badFilesFailAndLeaveTarget_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("code");
    // What the message says after the path: the entry and the check that failed.
    QTest::addColumn<QString>("reason");
    Project p;
    Fixture::fillProject(&p);
    const QMap<QString, QByteArray> docs = documentsOf(p, true);
    const QByteArray good = containerOf(docs);
    const QString lastTimeline = docs.lastKey();

    QTest::newRow("wrong MD5 trailer") << flipped(good, good.size() - 1, 1) << 5
                                       << "the digest does not match the entries";
    QTest::newRow("flipped byte") << flipped(good, good.size() / 2, 0x40) << 5 << "the digest does not match";
    QTest::newRow("truncated") << good.left(good.size() - 30) << 5
                               << "entry 3 (" + lastTimeline + "): the data length";
    QTest::newRow("no digest") << good.left(good.size() - 16) << 5 << "the digest after the end marker is missing";
    QTest::newRow("bytes after the digest") << good + "x" << 5 << "1 bytes follow the digest";
    QTest::newRow("neither PK nor OV1") << QByteArray("XV1") + good.mid(3) << 5
                                        << "neither an OV1 container nor a ZIP archive";
    QTest::newRow("empty") << QByteArray() << 5 << "neither an OV1 container nor a ZIP archive";
    QTest::newRow("magic only") << QByteArray("OV1") << 5 << "entry 1: the file ends before the end marker";
    // 85 bytes whose first entry claims almost 4 GiB: refused from the length alone.
    const QByteArray huge = QByteArray("OV1\x00\x0cproject.json\xff\xff\xff\xf0", 21) + QByteArray(64, 'x');
    QTest::newRow("length claims 4 GiB")
        << huge << 5 << "entry 1 (project.json): the data length 4294967280 is more than the 64 bytes left";
    QTest::newRow("PK but not a ZIP") << QByteArray("PK\x03\x04 garbage garbage garbage") << 5
                                      << "not a readable ZIP archive";
    QByteArray twice("OV1");
    for (int i = 0; i < 2; ++i)
        twice += QByteArray("\x00\x0cproject.json\x00\x00\x00\x02{}", 20);
    QTest::newRow("entry twice") << twice + "\xff\xff" + QByteArray(16, 0) << 5
                                 << "entry 2 (project.json): the name is used by an earlier entry";

    // Sound container, damaged documents inside.
    QMap<QString, QByteArray> noProject = docs;
    noProject.remove(QStringLiteral("project.json"));
    QTest::newRow("no project document") << containerOf(noProject) << 5 << "project.json: missing";
    QMap<QString, QByteArray> badEnvelope = docs;
    QByteArray &pd = badEnvelope[QStringLiteral("project.json")];
    pd = flipped(pd, pd.size() - 2, 0x11);
    QTest::newRow("project document damaged")
        << containerOf(badEnvelope) << 5 << "project.json: the compressed envelope's digest does not match";
    // The same timeline listed a thousand times was once read a thousand times over.
    Project repeated;
    repeated.copyFrom(&p);
    const Id first = p.timelineGroup()->timelines().first()->id();
    repeated.setTimelineIds(QList<Id>(1000, first));
    QMap<QString, QByteArray> repeatedIds = docs;
    repeatedIds[QStringLiteral("project.json")] = OVJsonSerializer().writeProject(&repeated);
    QTest::newRow("timeline listed twice")
        << containerOf(repeatedIds) << 5
        << QStringLiteral("project.json: \"timeline_ids\" item 2 is \"%1\", which is listed twice").arg(first);
    QMap<QString, QByteArray> badTimeline = docs;
    badTimeline[lastTimeline] = QByteArray("{\"labels\":[");
    QTest::newRow("timeline document damaged") << containerOf(badTimeline) << 6 << lastTimeline + ": not valid JSON";
    QMap<QString, QByteArray> backwards = docs;
    backwards[lastTimeline] = QByteArray(
        "{\"labels\":[{\"id\":\"l\",\"segments\":[{\"id\":\"s\",\"start\":\"2.000\",\"end\":\"1.000\"}]}]}");
    QTest::newRow("segment ends before it starts")
        << containerOf(backwards) << 6
        << lastTimeline + ": label 1 (id \"l\"), segment 1 (id \"s\"): \"end\" 1.000 is before \"start\" 2.000";
    QMap<QString, QByteArray> missingTimeline = docs;
    missingTimeline.remove(lastTimeline);
    QTest::newRow("timeline missing") << containerOf(missingTimeline) << 6 << lastTimeline + ": missing";
}

void TestLocalFileStorage::badFilesFailAndLeaveTarget()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, code);
    QFETCH(QString, reason);
    const QString path = m_dir.filePath(QStringLiteral("bad.kvpr"));
    QVERIFY(writeFile(path, bytes));
    Project target;
    Fixture::fillProject(&target);
    const QString before = target.contentHash();
    const QList<Timeline *> timelines = target.timelineGroup()->timelines();
    const QString timelineBefore = timelines.first()->contentHash();

    const OV::Error err = OVLocalFileStorage().load(path, &target);
    QCOMPARE(err.code(), code);
    const QString head = QStringLiteral("Failed to load project from:\n") + path + QStringLiteral("\n\n");
    QVERIFY2(err.message().startsWith(head + reason), qPrintable(err.message()));
    QCOMPARE(target.contentHash(), before);
    QCOMPARE(target.timelineGroup()->timelines(), timelines);
    QCOMPARE(timelines.first()->contentHash(), timelineBefore);
}

void TestLocalFileStorage::zipFormLoads()
{
    Project p;
    Fixture::fillProject(&p);
    p.setUseRelativePath(false);
    const QString path = m_dir.filePath(QStringLiteral("old.kvpr"));
    QMap<QString, QByteArray> docs = documentsOf(p, true);
    // Older files mixed plain and wrapped documents.
    const Timeline *last = p.timelineGroup()->timelines().last();
    docs[QStringLiteral("timelines/%1.json").arg(last->id())] = OVJsonSerializer(false).writeTimeline(last);
    const QByteArray video(300000, 'v');
    docs.insert(QStringLiteral("embvideo_clip.mp4"), video);
    {
        zipFile zip = zipOpen64(QFile::encodeName(path).constData(), APPEND_STATUS_CREATE);
        QVERIFY(zip);
        for (auto it = docs.cbegin(); it != docs.cend(); ++it) {
            QCOMPARE(zipOpenNewFileInZip64(zip, it.key().toUtf8().constData(), nullptr, nullptr, 0, nullptr, 0,
                         nullptr, Z_DEFLATED, Z_DEFAULT_COMPRESSION, 1),
                ZIP_OK);
            QCOMPARE(zipWriteInFileInZip(zip, it.value().constData(), unsigned(it.value().size())), ZIP_OK);
            QCOMPARE(zipCloseFileInZip(zip), ZIP_OK);
        }
        QCOMPARE(zipClose(zip, nullptr), ZIP_OK);
    }
    QVERIFY(readFile(path).startsWith("PK"));
    Project back;
    OVLocalFileStorage storage;
    const OV::Error err = storage.load(path, &back);
    QVERIFY2(err.isOk(), qPrintable(err.message()));
    QCOMPARE(Fixture::difference(&p, &back), QString());
    QCOMPARE(storage.carriedEntries(), QStringList { QStringLiteral("embvideo_clip.mp4") });

    // Saving writes the OV1 form and keeps the embedded video.
    QVERIFY(storage.save(path, &back).isOk());
    const QByteArray saved = readFile(path);
    QVERIFY(saved.startsWith("OV1"));
    QCOMPARE(entriesOf(saved).value(QStringLiteral("embvideo_clip.mp4")).data, video);
    Project again;
    QVERIFY(OVLocalFileStorage().load(path, &again).isOk());
    QCOMPARE(Fixture::difference(&p, &again), QString());
}

void TestLocalFileStorage::embeddedVideoIsCarried()
{
    const QString videoFile = m_dir.filePath(QStringLiteral("clip.mp4"));
    QByteArray video(2500000, Qt::Uninitialized);
    for (int i = 0; i < video.size(); ++i)
        video[i] = char((quint32(i) * 7919u) >> 3);
    QVERIFY(writeFile(videoFile, video));
    Project p;
    p.startNew(QStringLiteral("x"));
    const QString first = m_dir.filePath(QStringLiteral("embed.kvpr"));
    OVLocalFileStorage storage;
    storage.setEmbeddedVideo(videoFile);
    QVERIFY(storage.save(first, &p).isOk());
    QCOMPARE(storage.carriedEntries(), QStringList { QStringLiteral("embvideo_clip.mp4") });
    QCOMPARE(entriesOf(readFile(first)).value(QStringLiteral("embvideo_clip.mp4")).data, video);

    // Load, change, save as another file: the video comes along; and again in place.
    Project back;
    OVLocalFileStorage second;
    QVERIFY(second.load(first, &back).isOk());
    back.setTitle(QStringLiteral("changed"));
    const QString other = m_dir.filePath(QStringLiteral("embed-copy.kvpr"));
    QVERIFY(second.save(other, &back).isOk());
    QVERIFY(second.save(other, &back).isOk());
    const auto entries = entriesOf(readFile(other));
    QCOMPARE(entries.value(QStringLiteral("embvideo_clip.mp4")).data, video);
    const QString extracted = m_dir.filePath(QStringLiteral("out.mp4"));
    QVERIFY(second.extractEmbeddedVideo(extracted).isOk());
    QCOMPARE(readFile(extracted), video);

    // Dropping the embedded video.
    second.setEmbeddedVideo(QString());
    QVERIFY(second.save(other, &back).isOk());
    QVERIFY(!entriesOf(readFile(other)).contains(QStringLiteral("embvideo_clip.mp4")));
    QVERIFY(second.carriedEntries().isEmpty());
}

void TestLocalFileStorage::failedSaveKeepsOldFile()
{
    Project p;
    Fixture::fillProject(&p);
    const QString path = m_dir.filePath(QStringLiteral("sub/keep.kvpr"));
    QDir(m_dir.path()).mkpath(QStringLiteral("sub"));
    OVLocalFileStorage storage;
    QVERIFY(storage.save(path, &p).isOk());
    const QByteArray before = readFile(path);

    p.setTitle(QStringLiteral("never saved"));
    const QString scratch = m_dir.filePath(QStringLiteral("scratch.kvpr"));
    QVERIFY(OVLocalFileStorage().save(scratch, &p).isOk());
    const qint64 newSize = QFileInfo(scratch).size();
    for (qint64 limit : { qint64(0), qint64(2), qint64(40), newSize / 2, newSize - 17, newSize - 1 }) {
        storage.setWriteFailureAfter(limit);
        const OV::Error err = storage.save(path, &p);
        QCOMPARE(err.code(), 4);
        QCOMPARE(readFile(path), before);
        QCOMPARE(QDir(m_dir.filePath(QStringLiteral("sub"))).entryList(QDir::Files | QDir::Hidden),
            QStringList { QStringLiteral("keep.kvpr") });
    }
    Project back;
    QVERIFY(OVLocalFileStorage().load(path, &back).isOk());
    QVERIFY(back.title() != QLatin1String("never saved"));

    // A folder that does not exist.
    storage.setWriteFailureAfter(-1);
    QCOMPARE(storage.save(m_dir.filePath(QStringLiteral("no/such/folder/x.kvpr")), &p).code(), 4);
    // And a save that works afterwards.
    QVERIFY(storage.save(path, &p).isOk());
    QVERIFY(OVLocalFileStorage().load(path, &back).isOk());
    QCOMPARE(back.title(), QStringLiteral("never saved"));
}

void TestLocalFileStorage::backupsKeepLastFive()
{
    const QString path = m_dir.filePath(QStringLiteral("backed.kvpr"));
    const QString folder = OVLocalFileStorage::backupFolder(path);
    QVERIFY(folder.startsWith(OVLocalFileStorage::backupFolder() + "/backed-"));
    QVERIFY(folder != OVLocalFileStorage::backupFolder(m_dir.filePath(QStringLiteral("other/backed.kvpr"))));
    QDir(folder).removeRecursively();

    Project p;
    p.startNew(QStringLiteral("x"));
    OVLocalFileStorage storage;
    for (int i = 0; i < 8; ++i) {
        p.setTitle(QStringLiteral("version %1").arg(i));
        QVERIFY(storage.save(path, &p).isOk());
    }
    const QStringList backups = QDir(folder).entryList({ QStringLiteral("*.kvpr") }, QDir::Files, QDir::Name);
    QCOMPARE(backups.size(), 5);
    // The newest backup is the version before the last save.
    Project newest;
    QVERIFY(OVLocalFileStorage().load(folder + QLatin1Char('/') + backups.last(), &newest).isOk());
    QCOMPARE(newest.title(), QStringLiteral("version 6"));
    Project oldest;
    QVERIFY(OVLocalFileStorage().load(folder + QLatin1Char('/') + backups.first(), &oldest).isOk());
    QCOMPARE(oldest.title(), QStringLiteral("version 2"));
}

QTEST_GUILESS_MAIN(TestLocalFileStorage)
#include "tst_localfilestorage.moc"
