#include "synctesthelper.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

namespace SyncTest {

namespace {

const char *const Texts[] = {
    "The harbour was quiet that morning. Seven fishing boats came back before dawn, and the old "
    "market opened at six. A woman in a green coat counted crates of mackerel while two boys argued "
    "about the price of ice. Somewhere a radio played an old song about the sea, and the gulls "
    "answered it. By nine the tourists arrived with their cameras, asking where the lighthouse was "
    "and whether the ferry would run in this wind. Nobody knew. The captain said maybe, and then he "
    "laughed, and then he went back to mending his nets as if nothing had been asked at all.",
    "Our second experiment measured reaction times under three lighting conditions. Twelve "
    "participants pressed a key whenever a red square appeared. In dim light the mean response was "
    "four hundred and twenty milliseconds; in bright light it fell to three hundred and ninety. The "
    "flicker condition surprised everyone: responses were slower and far more variable, and two "
    "participants reported headaches. We repeated the session a week later with new volunteers and "
    "a calibrated lamp, and the pattern held, although the difference was smaller than before.",
};

} // namespace

bool run(const QString &program, const QStringList &args)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    if (!p.waitForFinished(300000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        qWarning() << program << "failed:" << args << p.readAll();
        return false;
    }
    return true;
}

bool ffmpeg(const QStringList &args)
{
    return run(QStringLiteral("ffmpeg"),
               QStringList { QStringLiteral("-y"), QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"),
                             QStringLiteral("error") }
                   + args);
}

bool haveTools()
{
    return !QStandardPaths::findExecutable(QStringLiteral("ffmpeg")).isEmpty()
        && !QStandardPaths::findExecutable(QStringLiteral("espeak-ng")).isEmpty();
}

QString script(const QString &dir, const QString &name, const QByteArray &body)
{
    const QString path = QDir(dir).filePath(name);
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly))
        return QString();
    f.write("#!/bin/sh\n" + body + "\n");
    f.close();
    f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

QString makeScene(const QString &dir, const QString &name, int variant, double seconds)
{
    const QString speech = QDir(dir).filePath(name + QStringLiteral(".speech.wav"));
    const int v = variant % 2;
    if (!run(QStringLiteral("espeak-ng"), { QStringLiteral("-s"), QString::number(160 + 15 * v), QStringLiteral("-v"),
                                            v ? QStringLiteral("en-us") : QStringLiteral("en"), QStringLiteral("-w"),
                                            speech, QString::fromLatin1(Texts[v]) }))
        return QString();
    // A melody whose notes change on an irregular grid, a pulsing chord and a quiet noise bed.
    const double base = 196.0 + 37.0 * variant;
    const QString music = QStringLiteral(
                              "aevalsrc=exprs='0.12*sin(2*PI*%1*(1+0.25*floor(mod(t*1.37,4)))*t)"
                              "+0.08*sin(2*PI*%2*t)*gt(mod(t*0.9,1),0.6)':s=%3:d=%4")
                              .arg(base)
                              .arg(base * 1.5)
                              .arg(Rate)
                              .arg(seconds);
    const QString noise = QStringLiteral("anoisesrc=c=pink:a=0.04:seed=%1:r=%2:d=%3")
                              .arg(11 + variant)
                              .arg(Rate)
                              .arg(seconds);
    const QString out = QDir(dir).filePath(name);
    const QString graph = QStringLiteral(
                              "[0:a]aresample=%1,aformat=channel_layouts=mono,apad=whole_dur=%2,volume=1.5[s];"
                              "[s][1:a][2:a]amix=inputs=3:duration=first:normalize=0[m]")
                              .arg(Rate)
                              .arg(seconds);
    if (!ffmpeg({ QStringLiteral("-i"), speech, QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                  music, QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), noise,
                  QStringLiteral("-filter_complex"), graph, QStringLiteral("-map"), QStringLiteral("[m]"),
                  QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-ar"), QString::number(Rate),
                  QStringLiteral("-t"), QString::number(seconds), out }))
        return QString();
    return out;
}

QString derive(const QString &source, const QString &dir, const QString &name, qint64 from, qint64 to,
               const QString &filters, double noise)
{
    QString chain = QStringLiteral("[0:a]atrim=start_sample=%1:end_sample=%2,asetpts=PTS-STARTPTS").arg(from).arg(to);
    if (!filters.isEmpty())
        chain += QLatin1Char(',') + filters;
    chain += QStringLiteral(",aresample=%1").arg(Rate);
    if (noise > 0) {
        chain += QStringLiteral("[x];anoisesrc=c=white:a=%1:seed=99:r=%2[n];[x][n]amix=inputs=2:duration=first:normalize=0")
                     .arg(noise)
                     .arg(Rate);
    }
    chain += QStringLiteral("[out]");
    const QString out = QDir(dir).filePath(name);
    if (!ffmpeg({ QStringLiteral("-i"), source, QStringLiteral("-filter_complex"), chain, QStringLiteral("-map"),
                  QStringLiteral("[out]"), QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-ar"),
                  QString::number(Rate), out }))
        return QString();
    return out;
}

} // namespace SyncTest
