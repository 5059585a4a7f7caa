#include "project/ovlocalfilestorage.h"

#include "project/ovjsonserializer.h"
#include "project/project.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QThread>

#include "project/ovzipreader.h"

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <unistd.h>
#endif

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

using namespace OVProject;

namespace {

const QString ProjectEntry = QStringLiteral("project.json");
const QString TimelineFolder = QStringLiteral("timelines/");
const QString JsonSuffix = QStringLiteral(".json");

// Passes writes through to `target` and fails once `limit` bytes have gone through (for tests
// that need a save to break half-way).
class WriteLimiter : public QIODevice
{
public:
    WriteLimiter(QIODevice *target, qint64 limit)
        : m_target(target)
        , m_limit(limit)
    {
    }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *data, qint64 len) override
    {
        if (m_limit >= 0 && m_written + len > m_limit) {
            const qint64 allowed = m_limit - m_written;
            if (allowed > 0)
                m_written += m_target->write(data, allowed);
            setErrorString(QStringLiteral("injected write failure"));
            return -1;
        }
        const qint64 n = m_target->write(data, len);
        if (n > 0)
            m_written += n;
        return n;
    }

private:
    QIODevice *m_target;
    qint64 m_limit;
    qint64 m_written = 0;
};

void syncFolder(const QString &folder)
{
#ifdef Q_OS_UNIX
    // The rename is only durable once the folder's entry is on disk too.
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
#else
    Q_UNUSED(folder);
#endif
}

// Runs job(0)..job(count - 1) on the calling thread and a few threads of its own, and returns
// when all are done. Own threads, so that a save never waits behind long work of other parts in
// a shared pool.
void runParallel(int count, const std::function<void(int)> &job)
{
    const int helpers = std::min<int>(count, int(std::max(1u, std::thread::hardware_concurrency()))) - 1;
    std::atomic<int> next { 0 };
    auto work = [&] {
        for (int i = next++; i < count; i = next++)
            job(i);
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < helpers; ++i)
        threads.emplace_back(work);
    work();
    for (std::thread &t : threads)
        t.join();
}

QString timelineEntry(const Id &id) { return TimelineFolder + id + JsonSuffix; }

// A member of an older ZIP project file as a device to stream from while the new file is written;
// each has an archive handle of its own, so several can be open at once.
class ZipMemberDevice : public QIODevice
{
public:
    explicit ZipMemberDevice(const QString &zipPath)
        : m_file(zipPath)
        , m_zip(&m_file)
    {
    }
    bool openMember(const QString &name)
    {
        return m_file.open(QIODevice::ReadOnly) && m_zip.open() && m_zip.locate(name) && m_zip.openMember()
            && open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        const qint64 n = m_zip.read(data, size);
        return n == 0 ? -1 : n; // the member's end before the size its directory claimed
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QFile m_file;
    OVZipReader m_zip;
};

QIODevice *openZipMember(const QString &zipPath, const QString &name, std::vector<std::unique_ptr<QIODevice>> *keep)
{
    auto member = std::make_unique<ZipMemberDevice>(zipPath);
    if (!member->openMember(name)) {
        qWarning() << "LocalFileStorage: cannot open" << name << "in" << zipPath;
        return nullptr;
    }
    keep->push_back(std::move(member));
    return keep->back().get();
}

} // namespace

OVLocalFileStorage::OVLocalFileStorage(const QString &path, QObject *parent)
    : OVProject::StorageInterface(parent)
    , m_path(path)
{
}

bool OVLocalFileStorage::isDocumentEntry(const QString &name)
{
    return name == ProjectEntry || (name.startsWith(TimelineFolder) && name.endsWith(JsonSuffix));
}

bool OVLocalFileStorage::isVideoEntry(const QString &name)
{
    return name.startsWith(QLatin1String("embvideo_")) || name == QLatin1String("video.bin")
        || name == QLatin1String("video.mp4");
}

QString OVLocalFileStorage::loadMessage(const QString &path, const QString &why)
{
    QString message = QStringLiteral("Failed to load project from:\n") + path;
    if (!why.isEmpty())
        message += QStringLiteral("\n\n") + why;
    return message;
}

OV::Error OVLocalFileStorage::loadError(const QString &path, const QString &why)
{
    return OV::Error(FileUnreadable, loadMessage(path, why));
}

OV::Error OVLocalFileStorage::cancelled()
{
    return OV::Error(OVJsonSerializer::Cancelled, QStringLiteral("Loading was cancelled."));
}

OV::Error OVLocalFileStorage::saveProject(Project *project) { return save(m_path, project); }

OV::Error OVLocalFileStorage::loadProject(Project *target) { return load(m_path, target); }

void OVLocalFileStorage::setEmbeddedVideo(const QString &videoFile)
{
    m_embedFile = videoFile;
    m_embedChanged = true;
}

OV::Error OVLocalFileStorage::save(const QString &path, Project *project)
{
    const OV::Error failed(SaveFailed, QStringLiteral("Failed to save project to:\n") + path);
    if (path.isEmpty() || !project)
        return failed;
    const QFileInfo info(path);
    const QString absPath = info.absoluteFilePath();
    const QString folder = info.absolutePath();

    // Work on a copy of the header: the timeline ids come from the group, the video path may
    // become relative, and the open project must not see either change.
    Project header;
    header.copyFrom(project);
    const QList<Timeline *> timelines = project->timelineGroup()->timelines();
    QList<Id> ids;
    for (const Timeline *t : timelines)
        ids.append(t->id());
    header.setTimelineIds(ids);
    if (header.useRelativePath() && !header.videoPath().isEmpty()
        && !QDir::isRelativePath(header.videoPath()))
        header.setVideoPath(QDir(folder).relativeFilePath(header.videoPath()));

    const OVJsonSerializer serializer(m_compress, m_level);
    QList<OVProjectContainer::WriteEntry> entries;
    entries.append({ ProjectEntry, serializer.writeProject(&header) });
    // Timeline documents are made (and compressed) side by side; the model is only read, and the
    // caller waits here, so nothing changes it meanwhile.
    std::vector<QByteArray> documents(std::size_t(timelines.size()));
    runParallel(int(timelines.size()),
        [&](int i) { documents[std::size_t(i)] = serializer.writeTimeline(timelines[i]); });
    for (qsizetype i = 0; i < timelines.size(); ++i)
        entries.append({ timelineEntry(timelines[i]->id()), std::move(documents[std::size_t(i)]) });

    QFile source(m_sourcePath);
    const bool haveSource = !m_sourcePath.isEmpty() && !m_carried.isEmpty();
    if (haveSource && m_sourceForm == OVProjectContainer::ContainerForm
        && !source.open(QIODevice::ReadOnly)) {
        qWarning() << "LocalFileStorage: cannot reopen" << m_sourcePath
                   << "to carry its entries:" << source.errorString();
        return failed;
    }
    QStringList carriedNames;
    std::vector<std::unique_ptr<QIODevice>> zipMembers;
    if (haveSource) {
        for (auto it = m_carried.cbegin(); it != m_carried.cend(); ++it) {
            if (m_embedChanged && isVideoEntry(it.key()))
                continue;
            carriedNames.append(it.key());
            if (it->inMemory)
                entries.append({ it.key(), it->data });
            else if (m_sourceForm == OVProjectContainer::ZipForm) {
                QIODevice *member = openZipMember(m_sourcePath, it.key(), &zipMembers);
                if (!member)
                    return failed;
                entries.append({ it.key(), QByteArray(), member, -1, it->size });
            } else
                entries.append({ it.key(), QByteArray(), &source, it->offset, it->size });
        }
    }
    QFile video(m_embedFile);
    if (m_embedChanged && !m_embedFile.isEmpty()) {
        if (!video.open(QIODevice::ReadOnly)) {
            qWarning() << "LocalFileStorage: cannot open video to embed" << m_embedFile
                       << video.errorString();
            return failed;
        }
        const QString name = QStringLiteral("embvideo_") + QFileInfo(m_embedFile).fileName();
        entries.append({ name, QByteArray(), &video, 0, video.size() });
        carriedNames.append(name);
    }

    if (QFileInfo::exists(absPath))
        backupExisting(absPath);

    QSaveFile out(absPath);
    if (!out.open(QIODevice::WriteOnly)) {
        qWarning() << "LocalFileStorage: cannot write" << absPath << out.errorString();
        return failed;
    }
    WriteLimiter limiter(&out, m_failAfter);
    limiter.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    QMap<QString, qint64> offsets;
    QString why;
    if (!OVProjectContainer::write(&limiter, entries, &offsets, &why)) {
        qWarning() << "LocalFileStorage: saving" << absPath << "failed:" << why << out.errorString();
        out.cancelWriting();
        return failed;
    }
    // commit() syncs the temporary file to disk before renaming it over the target.
    if (!out.commit()) {
        qWarning() << "LocalFileStorage: cannot replace" << absPath << out.errorString();
        return failed;
    }
    syncFolder(folder);

    OVProjectContainer::Entries carried;
    for (const QString &name : std::as_const(carriedNames)) {
        OVProjectContainer::Entry e;
        e.inMemory = false;
        e.offset = offsets.value(name, -1);
        for (const auto &w : std::as_const(entries)) {
            if (w.name == name)
                e.size = w.source ? w.size : w.data.size();
        }
        carried.insert(name, e);
    }
    m_carried = std::move(carried);
    m_sourcePath = absPath;
    m_sourceForm = OVProjectContainer::ContainerForm;
    m_embedChanged = false;
    m_embedFile.clear();
    m_path = path;
    qDebug() << "LocalFileStorage: saved" << absPath;
    return OV::Error::success();
}

OV::Error OVLocalFileStorage::load(const QString &path, Project *target)
{
    if (!target)
        return OV::Error(ContentDamaged, QStringLiteral("Failed to load project"));
    OVReadBudget budget(QFileInfo(path).size());
    return adopt(read(path, &budget), target);
}

std::shared_ptr<OVLocalFileStorage::ReadResult> OVLocalFileStorage::read(
    const QString &path, OVReadBudget *budget, QThread *home)
{
    auto result = std::make_shared<ReadResult>();
    result->path = path;
    if (!home)
        home = QThread::currentThread();
    // Nothing a file holds may end the program: an allocation that fails anywhere in here is a
    // refusal like any other. The handler only notes it; the memory is back once unwound.
    bool outOfMemory = false;
    try {
        result->error = readInto(path, budget, home, result.get());
    } catch (const std::bad_alloc &) {
        outOfMemory = true;
    }
    if (outOfMemory) {
        result->project.reset();
        result->error = loadError(path, QStringLiteral("not enough memory to read the file"));
    }
    if (!result->error.isOk())
        qWarning().noquote() << "LocalFileStorage: cannot load" << path << ":" << result->error.message();
    return result;
}

OV::Error OVLocalFileStorage::readInto(const QString &path, OVReadBudget *budget, QThread *home, ReadResult *result)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return loadError(path, file.errorString());
    const OVProjectContainer::Form form = OVProjectContainer::detectForm(&file);
    OVProjectContainer::Entries entries;
    QString why;
    bool read = false;
    if (form == OVProjectContainer::ContainerForm) {
        read = OVProjectContainer::read(&file, &entries, &isDocumentEntry, &why, budget);
    } else if (form == OVProjectContainer::ZipForm) {
        read = OVProjectContainer::readZip(&file, &entries, &isDocumentEntry, &why, OVReadBudget::MaxTextBytes, budget);
    } else {
        why = QStringLiteral("neither an OV1 container nor a ZIP archive");
    }
    if (budget->isCancelled())
        return cancelled();
    if (!read)
        return loadError(path, why);

    auto fresh = std::make_unique<Project>();
    const auto projectEntry = entries.constFind(ProjectEntry);
    if (projectEntry == entries.cend())
        return loadError(path, ProjectEntry + QStringLiteral(": missing"));
    if (!OVJsonSerializer().readProject(projectEntry->data, fresh.get(), budget, &why))
        return budget->isCancelled() ? cancelled() : loadError(path, ProjectEntry + QStringLiteral(": ") + why);

    // Timelines are read side by side, each into a tree of its own, and join the project only when
    // all of them were read.
    const OVJsonSerializer serializer;
    const QList<Id> ids = fresh->timelineIds();
    std::vector<QString> problems(std::size_t(ids.size()));
    std::vector<std::unique_ptr<Timeline>> loaded(std::size_t(ids.size()));
    std::atomic<int> done { 0 };
    // Timelines come to this thread to join the project, which then goes to `home` with them.
    QThread *self = QThread::currentThread();
    // The first timeline that fails is the one reported; once one failed the rest are skipped.
    std::atomic<int> firstFailure { -1 };
    auto failed = [&](int i, const QString &why) {
        problems[std::size_t(i)] = why;
        int none = -1;
        firstFailure.compare_exchange_strong(none, i);
    };
    runParallel(int(ids.size()), [&](int i) {
        const std::size_t k = std::size_t(i);
        if (firstFailure.load() >= 0)
            return;
        try {
            const QString name = timelineEntry(ids[i]);
            const auto entry = entries.constFind(name);
            if (entry == entries.cend()) {
                failed(i, name + QStringLiteral(": missing"));
                return;
            }
            auto timeline = std::make_unique<Timeline>(ids[i]);
            QString reason;
            if (!serializer.readTimeline(entry->data, timeline.get(), budget, &reason)) {
                failed(i, name + QStringLiteral(": ") + reason);
                return;
            }
            // The project document's list names the timeline; that is the id the project refers to.
            timeline->setId(ids[i]);
            timeline->moveToThread(self);
            loaded[k] = std::move(timeline);
        } catch (const std::bad_alloc &) {
            loaded[k].reset();
            failed(i, QStringLiteral("not enough memory"));
            return;
        }
        budget->setProgress(OVProjectContainer::ProgressOfReading
            + (1000 - OVProjectContainer::ProgressOfReading) * (++done) / int(ids.size()));
    });
    if (budget->isCancelled())
        return cancelled();
    if (firstFailure.load() >= 0)
        return OV::Error(ContentDamaged, loadMessage(path, problems[std::size_t(firstFailure.load())]));
    for (std::unique_ptr<Timeline> &t : loaded)
        fresh->timelineGroup()->addTimeline(t.release());
    const QString folder = QFileInfo(path).absolutePath();
    if (fresh->useRelativePath() && !fresh->videoPath().isEmpty() && QDir::isRelativePath(fresh->videoPath()))
        fresh->setVideoPath(QDir::cleanPath(QDir(folder).absoluteFilePath(fresh->videoPath())));
    fresh->moveToThread(home);
    result->project = std::move(fresh);
    for (auto it = entries.cbegin(); it != entries.cend(); ++it) {
        if (!isDocumentEntry(it.key()))
            result->carried.insert(it.key(), it.value());
    }
    result->form = form;
    budget->setProgress(1000);
    return OV::Error::success();
}

OV::Error OVLocalFileStorage::adopt(const std::shared_ptr<ReadResult> &result, Project *target)
{
    if (!result || !target)
        return OV::Error(ContentDamaged, QStringLiteral("Failed to load project"));
    if (!result->error.isOk())
        return result->error;
    if (!result->project)
        return OV::Error(ContentDamaged, QStringLiteral("Failed to load project"));
    target->reset();
    target->takeContentFrom(result->project.get());
    result->project.reset();
    m_carried = result->carried;
    m_sourcePath = QFileInfo(result->path).absoluteFilePath();
    m_sourceForm = result->form;
    m_embedChanged = false;
    m_embedFile.clear();
    m_path = result->path;
    qDebug() << "LocalFileStorage: loaded" << result->path << "with" << target->timelineGroup()->count() << "timelines";
    return OV::Error::success();
}

OV::Error OVLocalFileStorage::extractEmbeddedVideo(const QString &destination) const
{
    const OV::Error failed(
        SaveFailed, QStringLiteral("Failed to extract the embedded video to:\n") + destination);
    auto it = m_carried.cbegin();
    for (; it != m_carried.cend(); ++it) {
        if (isVideoEntry(it.key()))
            break;
    }
    if (it == m_carried.cend())
        return failed;
    QSaveFile out(destination);
    if (!out.open(QIODevice::WriteOnly))
        return failed;
    if (it->inMemory) {
        if (out.write(it->data) != it->data.size())
            return failed;
    } else {
        QFile in(m_sourcePath);
        if (!in.open(QIODevice::ReadOnly) || !in.seek(it->offset))
            return failed;
        qint64 left = it->size;
        QByteArray buffer(1 << 20, Qt::Uninitialized);
        while (left > 0) {
            const qint64 n = in.read(buffer.data(), std::min<qint64>(left, buffer.size()));
            if (n <= 0 || out.write(buffer.constData(), n) != n)
                return failed;
            left -= n;
        }
    }
    return out.commit() ? OV::Error::success() : failed;
}

QString OVLocalFileStorage::backupFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/backups");
}

QString OVLocalFileStorage::backupFolder(const QString &projectPath)
{
    const QFileInfo info(projectPath);
    const QByteArray hash
        = QCryptographicHash::hash(info.absoluteFilePath().toUtf8(), QCryptographicHash::Md5).toHex().left(8);
    return backupFolder() + QLatin1Char('/') + info.completeBaseName() + QLatin1Char('-')
        + QString::fromLatin1(hash);
}

void OVLocalFileStorage::backupExisting(const QString &path) const
{
    const QString folder = backupFolder(path);
    if (!QDir().mkpath(folder)) {
        qWarning() << "LocalFileStorage: cannot make backup folder" << folder;
        return;
    }
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss-zzz"));
    const QString base
        = folder + QLatin1Char('/') + QFileInfo(path).completeBaseName() + QLatin1Char('-') + stamp;
    QString name = base + QStringLiteral(".kvpr");
    for (int n = 1; QFileInfo::exists(name); ++n)
        name = base + QStringLiteral("_%1.kvpr").arg(n);
    if (!QFile::copy(path, name)) {
        qWarning() << "LocalFileStorage: cannot back up" << path << "to" << name;
        return;
    }
    QDir dir(folder);
    QStringList kept = dir.entryList({ QStringLiteral("*.kvpr") }, QDir::Files, QDir::Name);
    while (kept.size() > BackupsKept)
        dir.remove(kept.takeFirst());
}

OV::Error OVLocalFileStorage::readDocuments(const QString &path, QMap<QString, QByteArray> *documents)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return loadError(path);
    OVProjectContainer::Entries entries;
    QString why;
    bool read = false;
    switch (OVProjectContainer::detectForm(&file)) {
    case OVProjectContainer::ContainerForm:
        read = OVProjectContainer::read(&file, &entries, &isDocumentEntry, &why);
        break;
    case OVProjectContainer::ZipForm:
        read = OVProjectContainer::readZip(&file, &entries, &isDocumentEntry, &why);
        break;
    default:
        break;
    }
    if (!read) {
        qWarning() << "LocalFileStorage: cannot read" << path << ":" << why;
        return loadError(path);
    }
    documents->clear();
    for (auto it = entries.cbegin(); it != entries.cend(); ++it) {
        if (isDocumentEntry(it.key()))
            documents->insert(it.key(), it->data);
    }
    return OV::Error::success();
}
