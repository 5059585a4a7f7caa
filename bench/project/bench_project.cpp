// Saving and loading a large project: 4 timelines x 25 labels x 1,000 segments and 5,000
// utterances, compressed and plain. The floor is what any loader of the same bytes must pay:
// reading the file's entries, unwrapping and parsing the JSON, without building the model.
#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovprojectcontainer.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <json/json.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <vector>

using namespace OVProject;

namespace {

void buildProject(Project *p, int segmentsPerLabel)
{
    QRandomGenerator rng(42);
    p->startNew(QStringLiteral("user0"));
    for (int u = 1; u < 4; ++u)
        p->createTimeline(QStringLiteral("user%1").arg(u));
    for (Timeline *t : p->timelineGroup()->timelines()) {
        while (t->labels().size() < 25) {
            auto *l = new Label;
            l->setName(QStringLiteral("Label %1").arg(t->labels().size() + 1));
            l->setKey(QChar(char16_t(u'A' + t->labels().size())));
            l->setColor(QColor::fromRgb(rng.generate()));
            t->addLabel(l);
        }
        for (Label *l : t->labels()) {
            QList<Segment *> segs;
            double pos = rng.bounded(10.0);
            for (int i = 0; i < segmentsPerLabel; ++i) {
                const double len = 0.5 + rng.bounded(6.0);
                auto *s = new Segment(pos, pos + len);
                if (i % 10 == 0)
                    s->setDescription(QStringLiteral("note %1").arg(i));
                segs.append(s);
                pos += len + rng.bounded(4.0);
            }
            l->addSegments(segs);
        }
    }
    QList<Utterance *> utts;
    double pos = 0;
    for (int i = 0; i < 5000; ++i) {
        auto *u = new Utterance;
        u->setSpeaker(i % 2 ? QStringLiteral("Teacher") : QStringLiteral("Pupil"));
        u->setText(QStringLiteral("This is utterance number %1, a sentence of ordinary length.").arg(i));
        u->setStartTime(pos);
        pos += 1.0 + rng.bounded(3.0);
        u->setEndTime(pos);
        utts.append(u);
    }
    p->timelineGroup()->timelines().first()->addUtterances(utts);
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

double threadCpuSeconds()
{
    timespec ts {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + ts.tv_nsec / 1e9;
}

double cpuSeconds()
{
    timespec ts {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + ts.tv_nsec / 1e9;
}

// Median wall time of `runs` calls; `cpu` receives the median process CPU time, which a busy
// machine disturbs less than the wall clock.
double timeIt(int runs, const std::function<void()> &fn, double *cpu = nullptr)
{
    std::vector<double> times, cpuTimes;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        const double c0 = cpuSeconds();
        timer.start();
        fn();
        times.push_back(timer.nsecsElapsed() / 1e9);
        cpuTimes.push_back(cpuSeconds() - c0);
    }
    if (cpu)
        *cpu = median(cpuTimes);
    return median(times);
}

// Everything a loader must do with the bytes, short of building the model.
size_t floorLoad(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    OVProjectContainer::Entries entries;
    if (!OVProjectContainer::read(&file, &entries))
        std::abort();
    size_t members = 0;
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    for (const auto &e : std::as_const(entries)) {
        QByteArray json;
        if (!OVJsonSerializer::unwrap(e.data, &json))
            std::abort();
        Json::Value root;
        std::string errors;
        if (!reader->parse(json.constData(), json.constData() + json.size(), &root, &errors))
            std::abort();
        members += root.size();
    }
    return members;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    qputenv("XDG_DATA_HOME", dir.filePath(QStringLiteral("data")).toUtf8());
    // Optional arguments: segments per label (default 1000), runs per measurement (default 5) and the
    // compression level (default that of the serializer).
    const QStringList args = QCoreApplication::arguments();
    const int segmentsPerLabel = args.size() > 1 ? args[1].toInt() : 1000;
    const int runs = args.size() > 2 ? args[2].toInt() : 5;
    const int level = args.size() > 3 ? args[3].toInt() : OVJsonSerializer::DefaultCompressionLevel;

    Project project;
    QElapsedTimer buildTimer;
    buildTimer.start();
    buildProject(&project, segmentsPerLabel);
    std::printf("built the model in %.3f s\n", buildTimer.nsecsElapsed() / 1e9);

    struct Result
    {
        double save, load, floor, saveCpu, loadCpu, floorCpu;
        qint64 bytes;
    };
    auto measure = [&](bool compress) {
        Result r {};
        int n = 0;
        const QString tag = compress ? QStringLiteral("c") : QStringLiteral("p");
        r.save = timeIt(
            runs,
            [&] {
                OVLocalFileStorage storage;
                storage.setCompression(compress);
                storage.setCompressionLevel(level);
                if (!storage.save(dir.filePath(QStringLiteral("%1-%2.kvpr").arg(tag).arg(n++)), &project)
                         .isOk())
                    std::abort();
            },
            &r.saveCpu);
        const QString path = dir.filePath(QStringLiteral("%1-0.kvpr").arg(tag));
        r.bytes = QFileInfo(path).size();
        r.load = timeIt(
            runs,
            [&] {
                Project target;
                if (!OVLocalFileStorage().load(path, &target).isOk())
                    std::abort();
            },
            &r.loadCpu);
        r.floor = timeIt(
            runs, [&] { floorLoad(path); }, &r.floorCpu);
        std::printf(
            "%s: %lld bytes; wall: save %.3f s, load %.3f s, floor %.3f s; cpu: save %.3f s, load %.3f "
            "s, floor %.3f s\n",
            compress ? "compressed" : "plain", static_cast<long long>(r.bytes), r.save, r.load, r.floor,
            r.saveCpu, r.loadCpu, r.floorCpu);
        return r;
    };
    const Result plain = measure(false);
    const Result compressed = measure(true);

    // A save started from the GUI thread: how long that thread is held (the snapshot, and the
    // handling of the result), and the longest pause of a 5 ms timer on it while the worker writes.
    std::vector<double> blocked, blockedCpu, stalls;
    for (int i = 0; i < runs; ++i) {
        OVLocalFileStorage storage;
        QEventLoop loop;
        double handled = 0;
        QObject::connect(&storage, &OVLocalFileStorage::saveFinished, &loop, [&](quint64, const OV::Error &error) {
            if (!error.isOk())
                std::abort();
            QElapsedTimer t;
            t.start();
            loop.quit();
            handled = t.nsecsElapsed() / 1e6;
        });
        QElapsedTimer gap;
        double longest = 0;
        QTimer tick;
        QObject::connect(&tick, &QTimer::timeout, [&] {
            longest = std::max(longest, gap.nsecsElapsed() / 1e6);
            gap.restart();
        });
        tick.start(5);
        QElapsedTimer timer;
        const double c0 = threadCpuSeconds();
        timer.start();
        storage.startSave(dir.filePath(QStringLiteral("async-%1.kvpr").arg(i)), &project);
        const double started = timer.nsecsElapsed() / 1e6;
        const double startedCpu = (threadCpuSeconds() - c0) * 1e3;
        gap.start();
        loop.exec();
        blocked.push_back(started + handled);
        blockedCpu.push_back(startedCpu);
        stalls.push_back(longest);
    }
    std::printf("save from the GUI thread: blocked %.1f ms (cpu %.1f ms), longest timer pause while "
                "writing %.1f ms; a save on the GUI thread blocks it %.0f ms\n",
        median(blocked), median(blockedCpu), median(stalls), compressed.save * 1e3);

    Project check;
    if (!OVLocalFileStorage().load(dir.filePath(QStringLiteral("c-0.kvpr")), &check).isOk())
        return 1;
    int segments = 0;
    for (const Timeline *t : check.timelineGroup()->timelines())
        for (const Label *l : t->labels())
            segments += l->segmentCount();
    std::printf("loaded back %d segments\n", segments);

    std::printf("BENCH project_load_cpu_s %.4f s\n", compressed.loadCpu);
    std::printf("BENCH project_save_cpu_s %.4f s\n", compressed.saveCpu);
    std::printf("BENCH project_load_plain_s %.4f s\n", plain.load);
    std::printf("BENCH project_save_plain_s %.4f s\n", plain.save);
    std::printf("BENCH project_load_s %.4f s\n", compressed.load);
    std::printf("BENCH project_save_s %.4f s\n", compressed.save);
    std::printf("BENCH project_load_floor_ratio %.2f x\n", compressed.load / compressed.floor);
    std::printf("BENCH save_gui_block_ms %.1f ms\n", median(blocked));
    std::printf("BENCH save_gui_block_cpu_ms %.1f ms\n", median(blockedCpu));
    std::printf("BENCH save_gui_longest_pause_ms %.1f ms\n", median(stalls));
    return 0;
}
