// Codes and transcribes with the keyboard in the real application under a virtual X server and
// kills it with SIGKILL at random moments. Whatever the application had coded - it says so in its
// log, after the change is in the model - and the line typed for an unfinished utterance must
// come back from the journal it leaves behind.
#include "appsandbox.h"

#include "project/label.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovprojectjournal.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

#include <signal.h>

namespace {

struct Coded
{
    QString label;
    double start;
    double end;
};

bool run(const QString &program, const QStringList &args, const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(program, args);
    return p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

OVProject::Segment *findSegment(OVProject::Project *p, const QString &id)
{
    for (OVProject::Timeline *t : p->timelineGroup()->timelines()) {
        if (OVProject::Segment *s = t->findSegment(id))
            return s;
    }
    return nullptr;
}

// A virtual X server for the application and the keys sent to it, a recording and a project.
struct Desk
{
    AppSandbox box;
    QProcess xvfb;
    QProcessEnvironment xenv = QProcessEnvironment::systemEnvironment();
    QString project;

    ~Desk()
    {
        xvfb.terminate();
        xvfb.waitForFinished(5000);
    }
};

} // namespace

class TestKillRecovery : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void killedWhileCodingLosesNoCodedEvent();
    void killedWhileTranscribingKeepsTypedText();

private:
    void setUp(Desk *desk);
};

void TestKillRecovery::init()
{
    for (const char *tool : { "Xvfb", "xdotool", "ffmpeg" }) {
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            QSKIP(qPrintable(QStringLiteral("%1 is not installed").arg(QString::fromLatin1(tool))));
    }
}

void TestKillRecovery::setUp(Desk *desk)
{
    AppSandbox &box = desk->box;
    QProcess &xvfb = desk->xvfb;
    xvfb.start("Xvfb", { "-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten", "tcp" });
    QVERIFY(xvfb.waitForStarted(10000));
    QByteArray number;
    for (int waited = 0; !number.contains('\n') && waited < 200; ++waited) {
        xvfb.waitForReadyRead(100);
        number += xvfb.readAllStandardOutput();
    }
    QVERIFY2(number.contains('\n'), "Xvfb did not say which display it took");
    const QString display = QLatin1Char(':') + QString::fromLatin1(number).trimmed();
    box.setEnv("QT_QPA_PLATFORM", "xcb");
    box.setEnv("DISPLAY", display);
    box.setEnv("USER", "coder");
    // The coder's debug lines are what tells this test which segments were coded.
    box.setEnv("QT_LOGGING_RULES", "kavot.timeline.debug=true");
    desk->xenv.insert("DISPLAY", display);

    const QString video = box.path("clip.mp4");
    QVERIFY(run("ffmpeg", { "-v", "error", "-f", "lavfi", "-i", "testsrc=size=160x120:rate=10", "-t", "120",
                            "-c:v", "mpeg4", "-y", video }));
    desk->project = box.path("coding.kvpr");
    QVERIFY(run(AppSandbox::buildDir() + "/src/cli/kavot-cli",
                { "new", "--video", video, "--owner", "coder", desk->project }));
    // Double-press coding without lead times: every press opens or closes a segment now.
    QDir().mkpath(box.dataDir());
    QFile ini(box.dataDir() + "/settings.ini");
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write("[LabelingSettings]\nlabelingMode=2\nleadOpenTime=0\nleadCloseTime=0\n"
              "[UserInfoSettings]\nusername=coder\n");
}

void TestKillRecovery::killedWhileCodingLosesNoCodedEvent()
{
    Desk desk;
    setUp(&desk);
    if (QTest::currentTestFailed())
        return;
    AppSandbox &box = desk.box;
    const QString &project = desk.project;
    const QProcessEnvironment &xenv = desk.xenv;

    const int rounds = qEnvironmentVariableIntValue("KAVOT_KILL_ROUNDS") > 0 ? qEnvironmentVariableIntValue("KAVOT_KILL_ROUNDS") : 6;
    static const QRegularExpression codedLine(
        QStringLiteral(R"(KeyboardCoder::coded segment (\S+) label: (\S+) start: ([-0-9.]+) end: ([-0-9.]+))"));
    QHash<QString, Coded> coded;
    QRandomGenerator random(quint32(QDateTime::currentMSecsSinceEpoch()));
    int recoveredChanges = 0;
    for (int round = 0; round < rounds; ++round) {
        const int startsBefore = int(box.log().count("Journal started at"));
        QProcess *app = box.start({ project });
        QTRY_VERIFY_WITH_TIMEOUT(box.log().count("Journal started at") > startsBefore, 30000);
        // Focus in the timeline (lower part of the window), playback on, then keys as a coder types them.
        QVERIFY(run("xdotool", { "mousemove", "640", "640", "click", "1" }, xenv));
        QVERIFY(run("xdotool", { "key", "ctrl+shift+space" }, xenv));
        QStringList keys { "type", "--delay", "40" };
        QString text;
        for (int i = 0; i < 400; ++i)
            text += QChar(u'a' + random.bounded(4));
        keys << text;
        QProcess typist;
        typist.setProcessEnvironment(xenv);
        typist.start("xdotool", keys);
        QTest::qWait(500 + random.bounded(3000));
        ::kill(pid_t(app->processId()), SIGKILL);
        QVERIFY(app->waitForFinished(10000));
        typist.kill();
        typist.waitForFinished(5000);

        const QString log = box.log();
        for (auto it = codedLine.globalMatch(log); it.hasNext();) {
            const auto m = it.next();
            coded.insert(m.captured(1), { m.captured(2), m.captured(3).toDouble(), m.captured(4).toDouble() });
        }
        OVProject::Project back;
        OVProjectJournal::Summary summary;
        const OV::Error error = OVProjectJournal::recover(box.dataDir() + "/journal.kvj", &back, &summary);
        QVERIFY2(error.isOk(), qPrintable(error.message()));
        recoveredChanges += summary.changes;
        for (auto it = coded.cbegin(); it != coded.cend(); ++it) {
            const OVProject::Segment *s = findSegment(&back, it.key());
            QVERIFY2(s, qPrintable(QStringLiteral("round %1: coded segment %2 is lost").arg(round).arg(it.key())));
            QCOMPARE(s->label()->id(), it->label);
            QVERIFY2(qAbs(s->start() - it->start) < 0.0011 && (qAbs(s->end() - it->end) < 0.0011),
                     qPrintable(QStringLiteral("round %1: segment %2 is %3-%4, was coded %5-%6").arg(round).arg(it.key())
                                    .arg(s->start()).arg(s->end()).arg(it->start).arg(it->end)));
        }
        // Take the work back as the next start would, so the rounds build on each other.
        QVERIFY(OVLocalFileStorage().save(project, &back).isOk());
        QVERIFY(QFile::remove(box.dataDir() + "/journal.kvj"));
    }
    // A run in which nothing was coded would prove nothing.
    qInfo() << "coded segments:" << coded.size() << "recovered changes:" << recoveredChanges << "kills:" << rounds;
    QVERIFY2(coded.size() >= rounds, qPrintable(QString::number(coded.size())));
}

void TestKillRecovery::killedWhileTranscribingKeepsTypedText()
{
    Desk desk;
    setUp(&desk);
    if (QTest::currentTestFailed())
        return;
    QProcess *app = desk.box.start({ desk.project });
    QTRY_VERIFY_WITH_TIMEOUT(desk.box.log().contains("Journal started at"), 30000);
    const QString journal = desk.box.dataDir() + "/journal.kvj";
    // The text of the utterance being written, as a recovery now would bring it back.
    const auto recoveredText = [&journal] {
        OVProject::Project back;
        if (!OVProjectJournal::recover(journal, &back).isOk())
            return QString();
        for (const OVProject::Timeline *t : back.timelineGroup()->timelines()) {
            for (const OVProject::Utterance *u : t->utterances()) {
                if (!u->text().isEmpty())
                    return u->text();
            }
        }
        return QString();
    };

    // Transcribing on, an utterance started: the keys that follow go into its line, unfinished.
    QVERIFY(run("xdotool", { "mousemove", "640", "640", "click", "1" }, desk.xenv));
    QVERIFY(run("xdotool", { "key", "ctrl+shift+e" }, desk.xenv));
    QVERIFY(run("xdotool", { "key", "ctrl+shift+Return" }, desk.xenv));
    const QString typed = QStringLiteral("so we went back there");
    QVERIFY(run("xdotool", { "type", "--delay", "30", typed }, desk.xenv));
    QTRY_COMPARE_WITH_TIMEOUT(recoveredText(), typed, 20000);
    ::kill(pid_t(app->processId()), SIGKILL);
    QVERIFY(app->waitForFinished(10000));
    QCOMPARE(recoveredText(), typed);
}

QTEST_GUILESS_MAIN(TestKillRecovery)
#include "tst_killrecovery.moc"
