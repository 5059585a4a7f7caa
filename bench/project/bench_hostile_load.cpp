// Peak memory and time of loading crafted files that inflate or repeat: each is loaded in a
// fresh process of this program (so every peak starts from the same floor) and must be refused.
// The reference is the same process loading a sound project of 10,000 segments.
//
// bench_hostile_load              writes the files, loads each in a child, prints the figures
// bench_hostile_load --load FILE  loads FILE and prints "<refused 0|1> <peak KB> <seconds>"
#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovprojectcontainer.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <zip.h>

#include <algorithm>
#include <cstdio>

using namespace OVProject;

namespace {

// The high-water mark of this process's resident memory since its exec (getrusage would count
// the parent's pages from before the exec too).
long peakKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

int loadOne(const QString &path)
{
    QElapsedTimer timer;
    timer.start();
    OV::Error error;
    if (path.endsWith(QLatin1String(".kvtl"))) {
        QList<Label *> labels;
        error = OVJsonSerializer::loadLabelSetFile(path, &labels);
        qDeleteAll(labels);
    } else {
        Project p;
        error = OVLocalFileStorage().load(path, &p);
    }
    std::printf("%d %ld %.3f\n", error.isOk() ? 0 : 1, peakKb(), timer.nsecsElapsed() / 1e9);
    return 0;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

bool writeContainer(const QString &path, const QMap<QString, QByteArray> &entries)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly))
        return false;
    QList<OVProjectContainer::WriteEntry> list;
    for (auto it = entries.cbegin(); it != entries.cend(); ++it)
        list.append({ it.key(), it.value() });
    return OVProjectContainer::write(&f, list);
}

QByteArray repeated(const QByteArray &head, const QByteArray &item, qsizetype count, const QByteArray &tail)
{
    QByteArray out = head;
    out.reserve(head.size() + (item.size() + 1) * count + tail.size());
    for (qsizetype i = 0; i < count; ++i) {
        if (i)
            out += ',';
        out += item;
    }
    return out + tail;
}

QByteArray projectDocument(const QList<Id> &timelineIds)
{
    Project p;
    p.setTitle(QStringLiteral("crafted"));
    p.setTimelineIds(timelineIds);
    return OVJsonSerializer().writeProject(&p);
}

QString timelineEntry(const QString &id) { return QStringLiteral("timelines/%1.json").arg(id); }

struct Crafted
{
    QString name;
    bool mustRefuse;
};

QList<Crafted> writeFiles(const QString &dir)
{
    const OVJsonSerializer serializer;
    QList<Crafted> files;

    // The reference: a sound project of 10,000 segments.
    {
        Project p;
        p.startNew(QStringLiteral("u"));
        Label *l = p.timelineGroup()->timelines().first()->labels().first();
        QList<Segment *> segs;
        for (int i = 0; i < 10000; ++i)
            segs.append(new Segment(i * 2.0, i * 2.0 + 1.5));
        l->addSegments(segs);
        OVLocalFileStorage().save(dir + QStringLiteral("/sound.kvpr"), &p);
        files.append({ QStringLiteral("sound.kvpr"), false });
    }
    // One timeline listed a thousand times.
    {
        Project p;
        p.startNew(QStringLiteral("u"));
        Timeline *t = p.timelineGroup()->timelines().first();
        for (int i = 0; i < 200; ++i)
            t->labels().first()->addSegment(new Segment(i, i + 0.5));
        QMap<QString, QByteArray> entries;
        entries.insert(QStringLiteral("project.json"), projectDocument(QList<Id>(1000, t->id())));
        entries.insert(timelineEntry(t->id()), serializer.writeTimeline(t));
        writeContainer(dir + QStringLiteral("/repeated-timeline.kvpr"), entries);
        files.append({ QStringLiteral("repeated-timeline.kvpr"), true });
    }
    // A million empty segments in a few kilobytes.
    {
        const QByteArray doc = repeated("{\"labels\":[{\"id\":\"l\",\"segments\":[", "{}", 1000000, "]}]}");
        QMap<QString, QByteArray> entries;
        entries.insert(QStringLiteral("project.json"), projectDocument({ QStringLiteral("t") }));
        entries.insert(timelineEntry(QStringLiteral("t")), OVJsonSerializer::wrap(doc));
        writeContainer(dir + QStringLiteral("/empty-segments.kvpr"), entries);
        files.append({ QStringLiteral("empty-segments.kvpr"), true });
        // The same without compression: 3 MB of text that is all JSON values.
        writeFile(dir + QStringLiteral("/empty-segments-plain.kvtl"), doc);
        files.append({ QStringLiteral("empty-segments-plain.kvtl"), true });
    }
    // A label set that inflates to ten million labels.
    {
        writeFile(dir + QStringLiteral("/inflating.kvtl"),
            OVJsonSerializer::wrap(repeated("{\"labels\":[", "{}", 10000000, "]}")));
        files.append({ QStringLiteral("inflating.kvtl"), true });
    }
    // A 4 MB project whose hundred timelines each inflate to 40 MB of segments.
    {
        const QByteArray bomb = OVJsonSerializer::wrap(repeated(
            "{\"labels\":[{\"id\":\"l\",\"segments\":[", "{\"id\":\"s\",\"start\":\"1.000\",\"end\":\"2.000\"}", 1000000,
            "]}]}"));
        QList<Id> ids;
        QMap<QString, QByteArray> entries;
        for (int i = 0; i < 100; ++i) {
            ids.append(QStringLiteral("t%1").arg(i));
            entries.insert(timelineEntry(ids.last()), bomb);
        }
        entries.insert(QStringLiteral("project.json"), projectDocument(ids));
        writeContainer(dir + QStringLiteral("/inflating.kvpr"), entries);
        files.append({ QStringLiteral("inflating.kvpr"), true });
    }
    // The older ZIP form with a member that inflates to 200 MB.
    {
        zipFile zip = zipOpen64(QFile::encodeName(dir + QStringLiteral("/inflating-zip.kvpr")).constData(),
            APPEND_STATUS_CREATE);
        const auto member = [zip](const QString &name, const QByteArray &data, int times) {
            zipOpenNewFileInZip64(zip, name.toUtf8().constData(), nullptr, nullptr, 0, nullptr, 0, nullptr,
                Z_DEFLATED, 9, 1);
            for (int i = 0; i < times; ++i)
                zipWriteInFileInZip(zip, data.constData(), unsigned(data.size()));
            zipCloseFileInZip(zip);
        };
        if (zip) {
            member(QStringLiteral("project.json"), projectDocument({ QStringLiteral("t") }), 1);
            member(timelineEntry(QStringLiteral("t")), QByteArray(1 << 20, ' '), 200);
            zipClose(zip, nullptr);
        }
        files.append({ QStringLiteral("inflating-zip.kvpr"), true });
    }
    return files;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && QByteArray(argv[1]) == "--load")
        return loadOne(QString::fromLocal8Bit(argv[2]));

    QTemporaryDir dir;
    const QList<Crafted> files = writeFiles(dir.path());
    double worstMb = 0;
    double worstSeconds = 0;
    double soundMb = 0;
    bool allRefused = true;
    std::printf("%-28s %10s %9s %9s %s\n", "file", "size KB", "peak MB", "seconds", "result");
    for (const Crafted &f : files) {
        const QString path = dir.path() + QLatin1Char('/') + f.name;
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), { QStringLiteral("--load"), path });
        child.waitForFinished(-1);
        int refused = -1;
        long kb = 0;
        double seconds = 0;
        const QByteArray out = child.readAllStandardOutput();
        const bool parsed = std::sscanf(out.constData(), "%d %ld %lf", &refused, &kb, &seconds) == 3;
        const double mb = kb / 1024.0;
        std::printf("%-28s %10lld %9.1f %9.3f %s\n", qPrintable(f.name), QFileInfo(path).size() / 1024, mb, seconds,
            !parsed ? "crashed" : refused ? "refused" : "accepted");
        if (!f.mustRefuse) {
            soundMb = mb;
            continue;
        }
        allRefused = allRefused && parsed && refused == 1;
        worstMb = std::max(worstMb, parsed ? mb : 1e9);
        worstSeconds = std::max(worstSeconds, seconds);
    }
    std::printf("every crafted file refused: %s\n", allRefused ? "yes" : "NO");
    std::printf("BENCH hostile_load_peak_mb %.1f MB\n", worstMb);
    std::printf("BENCH hostile_load_max_s %.3f s\n", worstSeconds);
    std::printf("BENCH hostile_load_reference_peak_mb %.1f MB\n", soundMb);
    return allRefused ? 0 : 1;
}
