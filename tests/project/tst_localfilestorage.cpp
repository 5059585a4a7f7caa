#include "projectfixture.h"

#include "project/label.h"
#include "project/ovatomicfilewriter.h"
#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovprojectbackups.h"
#include "project/ovprojectcontainer.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QtEndian>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

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

// Passes writes through to the file and fails once `limit` bytes have gone through: a save that
// breaks half-way, at any byte.
class WriteLimiter : public QIODevice
{
public:
    WriteLimiter(QIODevice *target, qint64 limit)
        : m_target(target)
        , m_limit(limit)
    {
        open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *data, qint64 len) override
    {
        if (m_limit >= 0 && m_written + len > m_limit) {
            if (m_limit > m_written)
                m_written += m_target->write(data, m_limit - m_written);
            setErrorString(QStringLiteral("injected write failure"));
            return -1;
        }
        const qint64 n = m_target->write(data, len);
        m_written += std::max<qint64>(n, 0);
        return n;
    }

private:
    QIODevice *m_target;
    qint64 m_limit;
    qint64 m_written = 0;
};

class FailingStorage : public OVLocalFileStorage
{
public:
    qint64 failAfter = -1;

protected:
    QIODevice *outputDevice(OVAtomicFileWriter *file) const override
    {
        if (failAfter < 0)
            return file;
        m_limiter = std::make_unique<WriteLimiter>(file, failAfter);
        return m_limiter.get();
    }

private:
    mutable std::unique_ptr<WriteLimiter> m_limiter;
};

QString saveFailure(const QString &path, const QString &reason)
{
    return QStringLiteral("Failed to save project to:\n") + path + QStringLiteral("\n\n") + reason;
}

// Files of the folder, hidden ones included (temporary files of a save are hidden).
QStringList filesIn(const QString &folder) { return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name); }

// A timeline whose document does not compress well: tens of kilobytes whatever the level.
void addNoise(Project *p, int segments)
{
    Label *l = p->timelineGroup()->timelines().first()->labels().first();
    for (int i = 0; i < segments; ++i) {
        auto *s = new Segment(i, i + 0.5);
        s->setDescription(QString::fromLatin1(QCryptographicHash::hash(QByteArray::number(i), QCryptographicHash::Sha256).toBase64()));
        l->addSegment(s);
    }
}

bool run(const QString &program, const QStringList &args)
{
    QProcess p;
    p.start(program, args);
    return p.waitForFinished(20000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
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
    void saveErrorsSayWhy_data();
    void saveErrorsSayWhy();
    void backupsAreDistinctVersions();
    void strayTemporariesRemoved();
    void changedFileOnDisk_data();
    void changedFileOnDisk();
    void startSaveWritesSnapshotOnWorker();
    void cleanup();

private:
    QTemporaryDir m_dir;
    QTemporaryDir m_data;
    QString m_mounted;
};

void TestLocalFileStorage::init()
{
    QVERIFY(m_dir.isValid());
    // Backups go to the data folder: one of the test's own.
    qputenv("XDG_DATA_HOME", m_data.path().toUtf8());
}

void TestLocalFileStorage::cleanup()
{
    if (!m_mounted.isEmpty())
        run(QStringLiteral("umount"), { QStringLiteral("-l"), m_mounted });
    m_mounted.clear();
}

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
    FailingStorage storage;
    QVERIFY(storage.save(path, &p).isOk());
    const QByteArray before = readFile(path);
    const QStringList backupsBefore = filesIn(OVLocalFileStorage::backupFolder(path));

    p.setTitle(QStringLiteral("never saved"));
    const QString scratch = m_dir.filePath(QStringLiteral("scratch.kvpr"));
    QVERIFY(OVLocalFileStorage().save(scratch, &p).isOk());
    const qint64 newSize = QFileInfo(scratch).size();
    for (qint64 limit : { qint64(0), qint64(2), qint64(40), newSize / 2, newSize - 17, newSize - 1 }) {
        storage.failAfter = limit;
        const OV::Error err = storage.save(path, &p);
        QCOMPARE(err.code(), 4);
        QVERIFY2(err.message().startsWith(QStringLiteral("Failed to save project to:\n") + path + "\n\n"),
            qPrintable(err.message()));
        QCOMPARE(readFile(path), before);
        QCOMPARE(filesIn(m_dir.filePath(QStringLiteral("sub"))), QStringList { QStringLiteral("keep.kvpr") });
        // A failed save is no version.
        QCOMPARE(filesIn(OVLocalFileStorage::backupFolder(path)), backupsBefore);
    }
    Project back;
    QVERIFY(OVLocalFileStorage().load(path, &back).isOk());
    QVERIFY(back.title() != QLatin1String("never saved"));

    storage.failAfter = -1;
    QCOMPARE(storage.save(m_dir.filePath(QStringLiteral("no/such/folder/x.kvpr")), &p).message(),
        saveFailure(m_dir.filePath(QStringLiteral("no/such/folder/x.kvpr")), QStringLiteral("The folder does not exist.")));
    QVERIFY(storage.save(path, &p).isOk());
    QVERIFY(OVLocalFileStorage().load(path, &back).isOk());
    QCOMPARE(back.title(), QStringLiteral("never saved"));
}

void TestLocalFileStorage::saveErrorsSayWhy_data()
{
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QString>("reason");
    QTest::newRow("disk full") << "full" << "The disk is full.";
    QTest::newRow("read-only medium") << "readonly" << "The disk or folder is read-only.";
    QTest::newRow("permission denied") << "denied" << "You do not have permission to write there.";
}

void TestLocalFileStorage::saveErrorsSayWhy()
{
    // Real failures of the file system, not an injected one: the message must name the cause.
    QFETCH(QString, failure);
    QFETCH(QString, reason);
    const QString folder = m_dir.filePath(failure);
    QVERIFY(QDir().mkpath(folder));
    if (failure != QLatin1String("denied")) {
        if (!run(QStringLiteral("mount"), { "-t", "tmpfs", "-o", "size=64k", "tmpfs", folder }))
            QSKIP("mounting a small file system needs privileges this machine does not give");
        m_mounted = folder;
    }
    const QString path = folder + QStringLiteral("/study.kvpr");
    Project p;
    Fixture::fillProject(&p);
    OVLocalFileStorage storage;
    QVERIFY(storage.save(path, &p).isOk());
    const QByteArray before = readFile(path);

    if (failure == QLatin1String("full"))
        addNoise(&p, 2000);
    else
        p.setTitle(QStringLiteral("changed"));
    const QString hashBefore = p.contentHash();
    OV::Error err;
    if (failure == QLatin1String("readonly")) {
        QVERIFY(run(QStringLiteral("mount"), { "-o", "remount,ro", folder }));
        err = storage.save(path, &p);
    } else if (failure == QLatin1String("denied")) {
        // Root may write anywhere: save as nobody (the file system user is per thread).
        QVERIFY(::chmod(QFile::encodeName(folder).constData(), 0755) == 0);
        const bool root = ::geteuid() == 0;
        if (root)
            ::setfsuid(65534);
        else
            QVERIFY(::chmod(QFile::encodeName(folder).constData(), 0555) == 0);
        err = storage.save(path, &p);
        if (root)
            ::setfsuid(0);
        else
            ::chmod(QFile::encodeName(folder).constData(), 0755);
    } else {
        err = storage.save(path, &p);
    }
    QCOMPARE(err.code(), 4);
    QCOMPARE(err.message(), saveFailure(path, reason));
    QCOMPARE(readFile(path), before);
    QCOMPARE(filesIn(folder), QStringList { QStringLiteral("study.kvpr") });
    QCOMPARE(p.contentHash(), hashBefore);
}

void TestLocalFileStorage::backupsAreDistinctVersions()
{
    const QString path = m_dir.filePath(QStringLiteral("backed.kvpr"));
    const QString folder = OVLocalFileStorage::backupFolder(path);
    QVERIFY(folder.startsWith(OVLocalFileStorage::backupFolder() + "/backed-"));
    QVERIFY(folder != OVLocalFileStorage::backupFolder(m_dir.filePath(QStringLiteral("other/backed.kvpr"))));
    auto titles = [&] {
        QStringList out;
        for (const QString &file : OVProjectBackups(folder, QStringLiteral("backed")).versions()) {
            Project v;
            out.append(OVLocalFileStorage().load(file, &v).isOk() ? v.title() : QStringLiteral("<unreadable>"));
        }
        return out;
    };

    Project p;
    p.startNew(QStringLiteral("x"));
    FailingStorage storage;
    p.setTitle(QStringLiteral("v0"));
    QVERIFY(storage.save(path, &p).isOk());
    // A recovery copy and one from an earlier program version in the folder; and a backup whose
    // name says the future (the clock was set back since): none of them makes a version go.
    QVERIFY(QDir().mkpath(OVLocalFileStorage::recoveryFolder(path)));
    QVERIFY(writeFile(folder + "/backed-unsaved-20990101-000000.kvpr", readFile(path)));
    p.setTitle(QStringLiteral("future"));
    QVERIFY(OVLocalFileStorage().save(folder + "/backed-v000001-20991231-235959.kvpr", &p).isOk());
    for (int i = 1; i <= 3; ++i) {
        p.setTitle(QStringLiteral("v%1").arg(i));
        QVERIFY(storage.save(path, &p).isOk());
        // Saves without a change and failed saves add nothing.
        QVERIFY(storage.save(path, &p).isOk());
        storage.failAfter = 100;
        p.setTitle(QStringLiteral("failed"));
        QCOMPARE(storage.save(path, &p).code(), 4);
        storage.failAfter = -1;
    }
    QCOMPARE(titles(), (QStringList { "future", "v0", "v1", "v2" }));

    // Going back to an earlier content: when it is replaced again, its copy moves up instead of
    // being copied once more.
    p.setTitle(QStringLiteral("v1"));
    QVERIFY(storage.save(path, &p).isOk());
    QCOMPARE(titles(), (QStringList { "future", "v0", "v1", "v2", "v3" }));
    for (int i = 4; i <= 6; ++i) {
        p.setTitle(QStringLiteral("v%1").arg(i));
        QVERIFY(storage.save(path, &p).isOk());
    }
    QCOMPARE(titles(), (QStringList { "v2", "v3", "v1", "v4", "v5" }));
    QVERIFY(QFileInfo::exists(folder + "/backed-unsaved-20990101-000000.kvpr"));
    QVERIFY(QFileInfo::exists(OVLocalFileStorage::recoveryFolder(path)));

    // A backup that cannot be written is told, and the save itself goes on.
    QVERIFY(QDir(folder).removeRecursively());
    QVERIFY(writeFile(folder, "a file where the folder should be"));
    p.setTitle(QStringLiteral("v7"));
    QVERIFY(storage.save(path, &p).isOk());
    QVERIFY2(storage.lastBackupWarning().contains(folder), qPrintable(storage.lastBackupWarning()));
    Project back;
    QVERIFY(OVLocalFileStorage().load(path, &back).isOk());
    QCOMPARE(back.title(), QStringLiteral("v7"));
}

void TestLocalFileStorage::strayTemporariesRemoved()
{
    const QString path = m_dir.filePath(QStringLiteral("stray.kvpr"));
    Project p;
    p.startNew(QStringLiteral("x"));
    QVERIFY(OVLocalFileStorage().save(path, &p).isOk());
    // One left by a killed save; one of a save still running (it holds its lock); the user's own.
    const QString killed = m_dir.filePath(QStringLiteral(".stray.kvpr.saving-1a2b3c"));
    const QString running = m_dir.filePath(QStringLiteral(".stray.kvpr.saving-4d5e6f"));
    const QString users = m_dir.filePath(QStringLiteral("stray.kvpr.notes"));
    for (const QString &f : { killed, running, users })
        QVERIFY(writeFile(f, "OV1 half written"));
    const int fd = ::open(QFile::encodeName(running).constData(), O_RDONLY);
    QVERIFY(fd >= 0);
    QCOMPARE(::flock(fd, LOCK_EX | LOCK_NB), 0);
    QVERIFY(OVLocalFileStorage().save(path, &p).isOk());
    ::close(fd);
    QVERIFY(!QFileInfo::exists(killed));
    QVERIFY(QFileInfo::exists(running));
    QVERIFY(QFileInfo::exists(users));
}

void TestLocalFileStorage::changedFileOnDisk_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("saveAsWorks");
    QTest::newRow("replaced by another save") << "replaced" << true;
    QTest::newRow("moved away") << "moved" << true;
    QTest::newRow("deleted") << "deleted" << true;
    QTest::newRow("video bytes changed in place") << "patched" << false;
    QTest::newRow("shortened") << "truncated" << false;
}

void TestLocalFileStorage::changedFileOnDisk()
{
    // The embedded recording is copied from the file the project was read from; whatever
    // happened to that file since, a save either carries the very same bytes or fails saying why.
    QFETCH(QString, change);
    QFETCH(bool, saveAsWorks);
    QByteArray video(1500000, Qt::Uninitialized);
    for (int i = 0; i < video.size(); ++i)
        video[i] = char((quint32(i) * 2654435761u) >> 24);
    const QString videoFile = m_dir.filePath(QStringLiteral("clip.mp4"));
    QVERIFY(writeFile(videoFile, video));
    const QString path = m_dir.filePath(QStringLiteral("shared.kvpr"));
    {
        Project p;
        p.startNew(QStringLiteral("x"));
        OVLocalFileStorage first;
        first.setEmbeddedVideo(videoFile);
        QVERIFY(first.save(path, &p).isOk());
    }
    Project mine;
    OVLocalFileStorage storage;
    QVERIFY(storage.load(path, &mine).isOk());
    mine.setTitle(QStringLiteral("mine"));

    const QByteArray original = readFile(path);
    const qint64 videoAt = original.indexOf(video.left(64));
    QVERIFY(videoAt > 0);
    if (change == QLatin1String("replaced")) {
        Project theirs;
        theirs.startNew(QStringLiteral("y"));
        theirs.setTitle(QStringLiteral("theirs"));
        QVERIFY(OVLocalFileStorage().save(m_dir.filePath(QStringLiteral("theirs.kvpr")), &theirs).isOk());
        QVERIFY(::rename(QFile::encodeName(m_dir.filePath(QStringLiteral("theirs.kvpr"))).constData(),
                    QFile::encodeName(path).constData()) == 0);
    } else if (change == QLatin1String("moved")) {
        QVERIFY(QFile::rename(path, m_dir.filePath(QStringLiteral("elsewhere.kvpr"))));
    } else if (change == QLatin1String("deleted")) {
        QVERIFY(QFile::remove(path));
    } else {
        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadWrite));
        if (change == QLatin1String("patched")) {
            QVERIFY(f.seek(videoAt + 1000));
            QCOMPARE(f.write("XXXX"), qint64(4));
        } else {
            QVERIFY(f.resize(videoAt + 1000));
        }
    }
    const QByteArray onDisk = readFile(path);

    const OV::Error conflict = storage.save(path, &mine);
    QCOMPARE(conflict.code(), int(OVLocalFileStorage::ChangedOnDisk));
    QVERIFY(conflict.message().startsWith(QStringLiteral("Failed to save project to:\n") + path + "\n\n"));
    QCOMPARE(readFile(path), onDisk);

    const QString copy = m_dir.filePath(change + QStringLiteral("-copy.kvpr"));
    const OV::Error saveAs = storage.save(copy, &mine);
    const OV::Error overwrite = storage.save(path, &mine, OVLocalFileStorage::OverwriteChanges);
    if (!saveAsWorks) {
        QCOMPARE(saveAs.code(), 4);
        QVERIFY2(saveAs.message().contains(QStringLiteral("embvideo_clip.mp4")), qPrintable(saveAs.message()));
        QVERIFY(!QFileInfo::exists(copy));
        QCOMPARE(overwrite.code(), 4);
        QCOMPARE(readFile(path), onDisk);
        return;
    }
    QVERIFY2(saveAs.isOk(), qPrintable(saveAs.message()));
    QVERIFY2(overwrite.isOk(), qPrintable(overwrite.message()));
    for (const QString &file : { copy, path }) {
        Project back;
        QVERIFY(OVLocalFileStorage().load(file, &back).isOk());
        QCOMPARE(back.title(), QStringLiteral("mine"));
        QCOMPARE(entriesOf(readFile(file)).value(QStringLiteral("embvideo_clip.mp4")).data, video);
    }
    // Saved over it knowingly: the file is ours again and the next save needs no question.
    QVERIFY(storage.save(path, &mine).isOk());
}

void TestLocalFileStorage::startSaveWritesSnapshotOnWorker()
{
    Project p;
    p.startNew(QStringLiteral("x"));
    addNoise(&p, 20000);
    const QString path = m_dir.filePath(QStringLiteral("async.kvpr"));
    OVLocalFileStorage storage;
    QSignalSpy finished(&storage, &OVLocalFileStorage::saveFinished);
    QSignalSpy progress(&storage, &OVLocalFileStorage::saveProgress);

    // A running save, and three asked for behind it: those become one of the newest state.
    p.setTitle(QStringLiteral("first"));
    const quint64 first = storage.startSave(path, &p);
    QVERIFY(storage.isSaving());
    QList<quint64> queued;
    for (const char *title : { "second", "third", "fourth" }) {
        p.setTitle(QString::fromLatin1(title));
        queued.append(storage.startSave(path, &p));
    }
    // Changes after the last request are not in the file.
    p.setTitle(QStringLiteral("after"));
    p.timelineGroup()->timelines().first()->labels().first()->removeSegment(
        p.timelineGroup()->timelines().first()->labels().first()->segments().first());
    QVERIFY(finished.wait(20000));
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 4, 20000);
    QVERIFY(!storage.isSaving());
    QCOMPARE(finished.at(0).at(0).value<quint64>(), first);
    for (int i = 0; i < 4; ++i)
        QVERIFY(finished.at(i).at(1).value<OV::Error>().isOk());
    QCOMPARE(QList<quint64>({ finished.at(1).at(0).value<quint64>(), finished.at(2).at(0).value<quint64>(),
                 finished.at(3).at(0).value<quint64>() }),
        queued);
    QVERIFY(!progress.isEmpty());
    QCOMPARE(progress.last().at(0).value<qint64>(), progress.last().at(1).value<qint64>());
    Project back;
    QVERIFY(OVLocalFileStorage().load(path, &back).isOk());
    QCOMPARE(back.title(), QStringLiteral("fourth"));
    QCOMPARE(back.timelineGroup()->timelines().first()->labels().first()->segmentCount(), 20000);
    // The first state is the backup: the queued ones were never written on their own.
    QCOMPARE(OVProjectBackups(OVLocalFileStorage::backupFolder(path), QStringLiteral("async")).versions().size(), 1);
}

QTEST_GUILESS_MAIN(TestLocalFileStorage)
#include "tst_localfilestorage.moc"
