#include "project/ovlocalfilestorage.h"

#include "project/ovatomicfilewriter.h"
#include "log/ovthreadhandoff.h"
#include "project/ovjsonserializer.h"
#include "project/ovprojectbackups.h"
#include "project/ovprojectlogging.h"
#include "project/ovzipreader.h"
#include "project/project.h"
#include "project/projectsnapshot.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFuture>
#include <QMetaObject>
#include <QSaveFile>
#include <QStandardPaths>
#include <QThread>
#include <QtConcurrent/QtConcurrentRun>


#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

// Where a file is and what it was when last seen: a different inode, size or modification time
// means someone else changed or replaced it.
struct FileStamp
{
    bool valid = false;
    dev_t device = 0;
    ino_t inode = 0;
    qint64 size = 0;
    qint64 mtimeNs = 0;

    bool operator==(const FileStamp &) const = default;

    static FileStamp of(const struct stat &st)
    {
        return { true, st.st_dev, st.st_ino, qint64(st.st_size), qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec };
    }
    // errno in `error` when there is no stamp.
    static FileStamp ofPath(const QString &path, int *error)
    {
        struct stat st {};
        if (::stat(QFile::encodeName(path).constData(), &st) == 0)
            return of(st);
        *error = errno;
        return FileStamp();
    }
};

// Random-access reads of an open file by position (pread), so a worker can copy from it while
// nothing else moves a shared file offset, and whether or not the file still has a name.
class FileRegionReader : public QIODevice
{
public:
    explicit FileRegionReader(int fd)
        : m_fd(fd)
    {
        struct stat st {};
        m_size = ::fstat(fd, &st) == 0 ? qint64(st.st_size) : 0;
        QIODevice::open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    qint64 size() const override { return m_size; }
    bool seek(qint64 pos) override
    {
        m_offset = pos;
        return QIODevice::seek(pos);
    }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        ssize_t n;
        do
            n = ::pread(m_fd, data, size_t(maxSize), off_t(m_offset));
        while (n < 0 && errno == EINTR);
        if (n > 0)
            m_offset += n;
        return n < 0 ? -1 : qint64(n);
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    int m_fd;
    qint64 m_size = 0;
    qint64 m_offset = 0;
};

// One member of a ZIP archive, inflated as it is read (for entries carried from the older form).
class ZipMemberReader : public QIODevice
{
public:
    ZipMemberReader(int fd, const QString &name)
        : m_file(fd)
        , m_zip(&m_file)
    {
        if (m_zip.open() && m_zip.locate(name) && m_zip.openMember())
            QIODevice::open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qint64 n = m_zip.read(data, maxSize);
        // A member whose data does not match its CRC is damage, not an end.
        if (n == 0 && !m_zip.closeMember())
            return -1;
        return n;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    FileRegionReader m_file;
    OVZipReader m_zip;
};

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

} // namespace

// The file a project was last read from or written to, held open.
struct OVLocalFileStorage::Source
{
    QString path;
    int fd = -1;
    FileStamp stamp;
    OVProjectContainer::Form form = OVProjectContainer::UnknownForm;

    ~Source()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

// Everything a save needs, gathered on the storage's thread so the worker touches nothing else.
struct OVLocalFileStorage::Job
{
    Pending request;
    QString absPath;
    bool compress = true;
    int level = 9;
    std::shared_ptr<const Source> source;
    OVProjectContainer::Entries carried;
    QString embedFile;
    bool embedChanged = false;
    quint64 embedSerial = 0;
    // Set when the file is saved where it was read or last written: it must still be what it was.
    FileStamp expected;
    bool checkTarget = false;
    QString backupFolder;
};

struct OVLocalFileStorage::Outcome
{
    OV::Error error;
    QString backupWarning;
    std::shared_ptr<const Source> source;
    OVProjectContainer::Entries carried;
};

struct OVLocalFileStorage::Running
{
    Job job;
    // Written by the worker; read on the storage's thread once the future has finished.
    Outcome outcome;
    QFuture<void> future;
};

OVLocalFileStorage::OVLocalFileStorage(const QString &path, QObject *parent)
    : OVProject::StorageInterface(parent)
    , m_path(path)
{
    // Saves of one storage are written one after the other.
    m_pool.setMaxThreadCount(1);
}

OVLocalFileStorage::~OVLocalFileStorage()
{
    m_pending.clear();
    if (m_running)
        m_running->future.waitForFinished();
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
    ++m_embedSerial;
}

QIODevice *OVLocalFileStorage::outputDevice(OVAtomicFileWriter *file) const { return file; }

OV::Error OVLocalFileStorage::save(const QString &path, Project *project, int options)
{
    if (path.isEmpty() || !project)
        return OV::Error(SaveFailed, QStringLiteral("Failed to save project to:\n") + path);
    // Earlier saves first: the file must end up holding the newest state.
    waitForSaves();
    const Job job = prepare({ {}, path, std::make_shared<const ProjectSnapshot>(project), options });
    Outcome outcome = run(job, nullptr);
    apply(job, outcome);
    return outcome.error;
}

quint64 OVLocalFileStorage::startSave(const QString &path, const Project *project, int options)
{
    const quint64 ticket = ++m_lastTicket;
    auto snapshot = std::make_shared<const ProjectSnapshot>(project);
    const QString absPath = QFileInfo(path).absoluteFilePath();
    if (!m_pending.isEmpty() && QFileInfo(m_pending.last().path).absoluteFilePath() == absPath
        && m_pending.last().options == options) {
        // Nobody needs the older state written first: the newer one replaces it.
        m_pending.last().snapshot = std::move(snapshot);
        m_pending.last().tickets.append(ticket);
    } else {
        m_pending.append({ { ticket }, path, std::move(snapshot), options });
    }
    if (!m_running)
        startNext();
    return ticket;
}

void OVLocalFileStorage::startNext()
{
    if (m_running || m_pending.isEmpty())
        return;
    m_cancel = false;
    auto running = std::make_shared<Running>();
    running->job = prepare(m_pending.takeFirst());
    m_running = running;
    OV::handOff(running.get());
    running->future = QtConcurrent::run(&m_pool, [this, running] {
        OV::takeOver(running.get());
        running->outcome = run(running->job, &m_cancel);
        OV::handOff(running.get());
    });
    // Back on this thread once written, and never from inside startSave() (a quick failure may
    // be finished before the continuation is attached, and would then run at once); waitForSaves()
    // may have taken the result already.
    running->future.then(this, [this] {
        QMetaObject::invokeMethod(this, &OVLocalFileStorage::finishRunning, Qt::QueuedConnection);
    });
}

void OVLocalFileStorage::finishRunning()
{
    if (!m_running || !m_running->future.isFinished())
        return;
    const std::shared_ptr<Running> done = std::move(m_running);
    OV::takeOver(done.get());
    Outcome outcome = std::move(done->outcome);
    apply(done->job, outcome);
    startNext();
    for (quint64 ticket : std::as_const(done->job.request.tickets))
        Q_EMIT saveFinished(ticket, outcome.error, outcome.backupWarning);
}

void OVLocalFileStorage::waitForSaves()
{
    while (m_running) {
        m_running->future.waitForFinished();
        finishRunning();
    }
}

void OVLocalFileStorage::cancelSaves()
{
    const QList<Pending> dropped = std::exchange(m_pending, {});
    m_cancel = true;
    const OV::Error cancelled(SaveCancelled, QStringLiteral("Saving was cancelled; the file was left as it was."));
    for (const Pending &p : dropped) {
        for (quint64 ticket : p.tickets)
            Q_EMIT saveFinished(ticket, cancelled, QString());
    }
}

OVLocalFileStorage::Job OVLocalFileStorage::prepare(const Pending &request) const
{
    Job job;
    job.request = request;
    job.absPath = QFileInfo(request.path).absoluteFilePath();
    job.compress = m_compress;
    job.level = m_level;
    job.source = m_source;
    job.carried = m_carried;
    job.embedFile = m_embedFile;
    job.embedChanged = m_embedChanged;
    job.embedSerial = m_embedSerial;
    job.backupFolder = backupFolder(job.absPath);
    if (m_source && m_source->stamp.valid && m_source->path == job.absPath && !(request.options & OverwriteChanges)) {
        job.expected = m_source->stamp;
        job.checkTarget = true;
    }
    return job;
}

OVLocalFileStorage::Outcome OVLocalFileStorage::run(const Job &job, const std::atomic<bool> *cancel) const
{
    Outcome out;
    const QString &path = job.absPath;
    auto failed = [&](int code, const QString &reason) {
        out.error = OV::Error(code, QStringLiteral("Failed to save project to:\n") + job.request.path
                + (reason.isEmpty() ? QString() : QStringLiteral("\n\n") + reason));
        qCWarning(lcProject).noquote() << "LocalFileStorage: saving" << path << "failed:" << reason;
        return out;
    };

    if (job.checkTarget) {
        int statError = 0;
        const FileStamp now = FileStamp::ofPath(path, &statError);
        if (!now.valid && statError != ENOENT)
            return failed(SaveFailed, OVAtomicFileWriter::reasonFor(statError));
        if (!now.valid)
            return failed(ChangedOnDisk,
                QStringLiteral("The file was moved or deleted by another program since the project was "
                               "opened or last saved."));
        if (now != job.expected)
            return failed(ChangedOnDisk,
                QStringLiteral("The file was changed by another program or coder since the project was "
                               "opened or last saved. Saving would overwrite those changes."));
    }
    if (const int removed = OVAtomicFileWriter::removeStrayTemporaries(path))
        qCInfo(lcProject) << "LocalFileStorage: removed" << removed << "temporary files of an interrupted save of" << path;

    // The header as it goes into the file: the video path may become relative to its folder.
    ProjectSnapshot::HeaderData header = job.request.snapshot->headerData;
    const QString folder = QFileInfo(path).absolutePath();
    if (header.useRelativePath && !header.videoPath.isEmpty() && !QDir::isRelativePath(header.videoPath))
        header.videoPath = QDir(folder).relativeFilePath(header.videoPath);
    const OVJsonSerializer serializer(job.compress, job.level);
    QList<OVProjectContainer::WriteEntry> entries;
    entries.append({ ProjectEntry, serializer.writeProject(header) });
    // Timeline documents are made (and compressed) side by side from the snapshot.
    const std::vector<ProjectSnapshot::TimelineData> &timelines = job.request.snapshot->timelines;
    std::vector<QByteArray> documents(timelines.size());
    runParallel(int(timelines.size()),
        [&](int i) { documents[std::size_t(i)] = serializer.writeTimeline(timelines[std::size_t(i)]); });
    for (std::size_t i = 0; i < timelines.size(); ++i)
        entries.append({ timelineEntry(timelines[i].id), std::move(documents[i]) });

    // Carried entries come from the file as it was read, through the handle kept since.
    std::unique_ptr<FileRegionReader> sourceReader;
    std::vector<std::unique_ptr<ZipMemberReader>> zipMembers;
    QStringList carriedNames;
    for (auto it = job.carried.cbegin(); it != job.carried.cend(); ++it) {
        if (job.embedChanged && isVideoEntry(it.key()))
            continue;
        carriedNames.append(it.key());
        if (it->inMemory) {
            entries.append({ it.key(), it->data });
            continue;
        }
        if (!job.source || job.source->fd < 0)
            return failed(SaveFailed, QStringLiteral("The embedded recording \"%1\" cannot be found any more.").arg(it.key()));
        if (!sourceReader)
            sourceReader = std::make_unique<FileRegionReader>(job.source->fd);
        if (job.source->form == OVProjectContainer::ZipForm) {
            // The older form: the member is inflated as it is copied.
            auto member = std::make_unique<ZipMemberReader>(job.source->fd, it.key());
            if (!member->isOpen())
                return failed(SaveFailed,
                    QStringLiteral("The embedded recording \"%1\" cannot be read from %2.").arg(it.key(), job.source->path));
            entries.append({ it.key(), QByteArray(), member.get(), -1, it->size, it->digest });
            zipMembers.push_back(std::move(member));
        } else {
            entries.append({ it.key(), QByteArray(), sourceReader.get(), it->offset, it->size, it->digest });
        }
    }
    QFile video(job.embedFile);
    if (job.embedChanged && !job.embedFile.isEmpty()) {
        if (!video.open(QIODevice::ReadOnly))
            return failed(SaveFailed,
                QStringLiteral("The video to embed cannot be read: %1 (%2).").arg(job.embedFile, video.errorString()));
        const QString name = QStringLiteral("embvideo_") + QFileInfo(job.embedFile).fileName();
        entries.append({ name, QByteArray(), &video, 0, video.size() });
        carriedNames.append(name);
    }

    OVAtomicFileWriter file(path);
    if (!file.open())
        return failed(SaveFailed, file.reason());
    QIODevice *device = outputDevice(&file);
    qint64 reported = -1;
    auto progress = [&](qint64 written, qint64 total) {
        if (cancel && *cancel)
            return false;
        // About a hundred steps, however large the file.
        if (written == total || written - reported >= total / 100) {
            reported = written;
            Q_EMIT const_cast<OVLocalFileStorage *>(this)->saveProgress(written, total);
        }
        return true;
    };
    OVProjectContainer::WriteReport report;
    QString why;
    if (!OVProjectContainer::write(device, entries, &report, &why, progress)) {
        file.cancel();
        qCWarning(lcProject).noquote() << "LocalFileStorage: container not written:" << why;
        if (cancel && *cancel)
            return failed(SaveCancelled, QStringLiteral("Saving was cancelled; the file was left as it was."));
        if (!report.failedSource.isEmpty())
            return failed(SaveFailed,
                QStringLiteral("The embedded recording \"%1\" could not be copied: the file it comes from (%2) "
                               "was changed or shortened by another program since it was opened. The file "
                               "on disk was left as it was.")
                    .arg(report.failedSource, job.source ? job.source->path : QString()));
        if (file.errorNumber())
            return failed(SaveFailed, file.reason());
        return failed(SaveFailed, QStringLiteral("The file could not be written (%1).").arg(device->errorString()));
    }
    if (!file.sync())
        return failed(SaveFailed, file.reason());

    // The version about to be replaced goes to the backups first, unless it holds what was just
    // written (a save without changes).
    if (QFileInfo::exists(path) && OVProjectBackups::contentId(path) != QByteArrayLiteral("OV1:") + report.digest.toHex()) {
        OVProjectBackups backups(job.backupFolder, QFileInfo(path).completeBaseName());
        QString backupWhy;
        if (!backups.add(path, &backupWhy)) {
            out.backupWarning = QStringLiteral("The project was saved, but the version it replaced could not be "
                                               "kept in the backup folder:\n%1\n\n%2")
                                    .arg(backups.folder(), backupWhy);
            qCWarning(lcProject).noquote() << "LocalFileStorage:" << out.backupWarning;
        }
    }
    if (!file.commit())
        return failed(SaveFailed, file.reason());
    OVProjectBackups(job.backupFolder, QFileInfo(path).completeBaseName()).rotate(BackupsKept);

    auto source = std::make_shared<Source>();
    source->path = path;
    source->form = OVProjectContainer::ContainerForm;
    source->fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    struct stat st {};
    if (source->fd >= 0 && ::fstat(source->fd, &st) == 0)
        source->stamp = FileStamp::of(st);
    out.source = std::move(source);
    for (const QString &name : std::as_const(carriedNames)) {
        OVProjectContainer::Entry e;
        e.inMemory = false;
        e.offset = report.offsets.value(name, -1);
        for (const auto &w : std::as_const(entries)) {
            if (w.name != name)
                continue;
            e.size = w.source ? w.size : w.data.size();
            e.digest = w.source ? report.digests.value(name)
                                : QCryptographicHash::hash(w.data, QCryptographicHash::Md5);
        }
        out.carried.insert(name, e);
    }
    qCInfo(lcProject) << "LocalFileStorage: saved" << path;
    return out;
}

void OVLocalFileStorage::apply(const Job &job, Outcome &outcome)
{
    m_backupWarning = outcome.backupWarning;
    if (!outcome.error.isOk())
        return;
    m_carried = std::move(outcome.carried);
    m_source = std::move(outcome.source);
    if (job.embedSerial == m_embedSerial) {
        m_embedChanged = false;
        m_embedFile.clear();
    }
    m_path = job.request.path;
}

void OVLocalFileStorage::rememberSource(const QString &path, int fd, OVProjectContainer::Form form)
{
    auto source = std::make_shared<Source>();
    source->path = QFileInfo(path).absoluteFilePath();
    source->form = form;
    // The ZIP reader closes the file it was given: then the file is opened again by its name.
    source->fd = fd >= 0 ? ::fcntl(fd, F_DUPFD_CLOEXEC, 0)
                         : ::open(QFile::encodeName(source->path).constData(), O_RDONLY | O_CLOEXEC);
    struct stat st {};
    if (source->fd >= 0 && ::fstat(source->fd, &st) == 0)
        source->stamp = FileStamp::of(st);
    m_source = std::move(source);
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
        qCWarning(lcProject).noquote() << "LocalFileStorage: cannot load" << path << ":" << result->error.message();
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
    // The file stays open from here: carried entries are copied from the file as it was read,
    // whatever another program does to the path meanwhile.
    result->sourceFd = ::fcntl(file.handle(), F_DUPFD_CLOEXEC, 0);
    budget->setProgress(1000);
    return OV::Error::success();
}

OVLocalFileStorage::ReadResult::~ReadResult()
{
    if (sourceFd >= 0)
        ::close(sourceFd);
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
    rememberSource(result->path, result->sourceFd, result->form);
    m_embedChanged = false;
    m_embedFile.clear();
    m_path = result->path;
    qCInfo(lcProject) << "LocalFileStorage: loaded" << result->path << "with" << target->timelineGroup()->count() << "timelines";
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
        if (!m_source || m_source->fd < 0 || m_source->form != OVProjectContainer::ContainerForm)
            return failed;
        FileRegionReader in(m_source->fd);
        if (!in.seek(it->offset))
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

QString OVLocalFileStorage::recoveryFolder(const QString &projectPath)
{
    return (projectPath.isEmpty() ? backupFolder() : backupFolder(projectPath)) + QStringLiteral("/recovery");
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
        qCWarning(lcProject) << "LocalFileStorage: cannot read" << path << ":" << why;
        return loadError(path);
    }
    documents->clear();
    for (auto it = entries.cbegin(); it != entries.cend(); ++it) {
        if (isDocumentEntry(it.key()))
            documents->insert(it.key(), it->data);
    }
    return OV::Error::success();
}
