#include "app/kvmainwindow.h"
#include "app/ovactionregistry.h"
#include "app/ovplayerpanel.h"
#include "log/nxlogwidget.h"
#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "settings/ovkeyboardsettings.h"
#include "settings/ovlabelingsettings.h"
#include "timeline/ovtimelinecontrol.h"
#include "settings/ovrecentprojects.h"
#include "settings/ovsettings.h"
#include "settings/ovuserinfosettings.h"

#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QProcess>
#include <QSplitter>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// Answers the window's questions the way a test row wants.
class TestWindow : public KVMainWindow
{
public:
    using KVMainWindow::KVMainWindow;
    QMessageBox::StandardButton unsavedAnswer = QMessageBox::Discard;
    QMessageBox::StandardButton crashAnswer = QMessageBox::No;
    int unsavedAsked = 0;
    int crashAsked = 0;
    QStringList errors;
    QString openPath;
    QString savePath;

protected:
    QMessageBox::StandardButton askUnsavedChanges() override
    {
        ++unsavedAsked;
        return unsavedAnswer;
    }
    QMessageBox::StandardButton askSendCrashReport() override
    {
        ++crashAsked;
        return crashAnswer;
    }
    void showError(const QString &, const QString &message) override { errors << message; }
    bool showLoadError(const QString &, const QString &message) override
    {
        errors << message;
        return false;
    }
    QString chooseOpenPath() override { return openPath; }
    QString chooseSavePath() override { return savePath; }
};

} // namespace

class TestKVMainWindow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void newProjectHasOneTimelineForTheCurrentUser()
    {
        QTemporaryDir dir;
        OVSettings settings;
        settings.open(dir.path() + "/settings.ini");
        settings.userInfo()->setUsername("coder7");
        TestWindow w(&settings);
        QSignalSpy opened(&w, &KVMainWindow::projectOpened);
        w.onNewProject();
        QCOMPARE(opened.count(), 1);
        OVProject::Project *p = w.project();
        QVERIFY(p);
        QVERIFY(!p->id().isEmpty());
        const auto timelines = p->timelineGroup()->timelines();
        QCOMPARE(timelines.size(), 1);
        QCOMPARE(timelines.first()->owner(), QString("coder7"));
        QCOMPARE(p->state()->activeUser(), QString("coder7"));
        QCOMPARE(timelines.first()->labels().size(), 4);
        QCOMPARE(timelines.first()->labels().first()->name(), QString("Label 1"));
        QVERIFY(w.isProjectModified());
        QVERIFY(w.windowTitle().contains("[*]"));
        QVERIFY(w.isWindowModified());
    }

    void closingAsksAboutUnsavedChanges_data()
    {
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("closed");
        QTest::newRow("discard") << int(QMessageBox::Discard) << true;
        QTest::newRow("cancel") << int(QMessageBox::Cancel) << false;
    }
    void closingAsksAboutUnsavedChanges()
    {
        QFETCH(int, answer);
        QFETCH(bool, closed);
        TestWindow w(nullptr);
        w.onNewProject(); // a project that was never saved counts as modified
        w.unsavedAnswer = QMessageBox::StandardButton(answer);
        QCOMPARE(w.onCloseProject(true), closed);
        QCOMPARE(w.unsavedAsked, 1);
        QCOMPARE(w.project() == nullptr, closed);
    }

    void crashReportsAreOfferedOnce()
    {
        QTemporaryDir dir;
        QFile report(dir.path() + "/crash-1.txt");
        QVERIFY(report.open(QIODevice::WriteOnly));
        report.write("Kavot crash report\n");
        report.close();
        TestWindow w(nullptr);
        w.checkForCrashReports(dir.path());
        QCOMPARE(w.crashAsked, 1);
        QVERIFY(QFile::exists(dir.path() + "/seen/crash-1.txt"));
        w.checkForCrashReports(dir.path());
        QCOMPARE(w.crashAsked, 1);
    }

    void shortcutsFollowTheKeyboardSettings()
    {
        QTemporaryDir dir;
        OVSettings settings;
        settings.open(dir.path() + "/settings.ini");
        TestWindow w(&settings);
        QAction *save = w.actionRegistry()->action(OVActionRegistry::Settings);
        QCOMPARE(save->shortcut(), QKeySequence("Ctrl+Shift+S"));
        settings.keyboard()->setShortcut(OVActionRegistry::Settings, "F9");
        QCOMPARE(save->shortcut(), QKeySequence("F9"));
    }

    void logViewToggles()
    {
        TestWindow w(nullptr);
        auto *dock = w.findChild<QDockWidget *>("dw_log");
        QVERIFY(dock);
        w.show();
        QVERIFY(!dock->isVisible());
        auto *toggle = w.findChild<QAction *>("actionShowLog");
        toggle->setChecked(true);
        QVERIFY(dock->isVisible());
        QVERIFY(w.logWidget()->findChild<QObject *>("pt_log"));
    }

    void saveAndReopen()
    {
        QTemporaryDir dir;
        OVSettings settings;
        settings.open(dir.path() + "/settings.ini");
        settings.userInfo()->setUsername("anna");
        TestWindow w(&settings);
        w.onNewProject();
        w.project()->setTitle("Playground study");
        OVProject::Label *label = w.project()->timelineGroup()->timelines().first()->labels().first();
        label->setName("Gaze");
        w.savePath = dir.path() + "/study"; // the extension is added
        QVERIFY(w.onSaveProjectAs());
        QCOMPARE(w.projectPath(), dir.path() + "/study.kvpr");
        QVERIFY(!w.isProjectModified());
        QVERIFY(w.windowTitle().startsWith("Playground study"));
        // A change deep in the model after the save sets the mark again; saving clears it.
        label->setName("Gaze at adult");
        QVERIFY(w.isProjectModified() && w.isWindowModified());
        QVERIFY(w.onSaveProject());
        QCOMPARE(settings.recentProjects()->recentProjects(), QStringList({ dir.path() + "/study.kvpr" }));
        const QString id = w.project()->id();
        QVERIFY(w.onCloseProject(true));
        QCOMPARE(w.unsavedAsked, 0);

        // Another coder opens it: their own timeline is added beside anna's.
        settings.userInfo()->setUsername("ben");
        w.openFile(dir.path() + "/study.kvpr");
        QVERIFY(w.errors.isEmpty());
        QVERIFY(w.project());
        QCOMPARE(w.project()->id(), id);
        QCOMPARE(w.project()->title(), QString("Playground study"));
        const auto timelines = w.project()->timelineGroup()->timelines();
        QCOMPARE(timelines.size(), 2);
        QCOMPARE(timelines[0]->owner(), QString("anna"));
        QCOMPARE(timelines[0]->labels().first()->name(), QString("Gaze at adult"));
        QCOMPARE(timelines[1]->owner(), QString("ben"));
        QCOMPARE(w.project()->state()->activeUser(), QString("ben"));
        QVERIFY(w.isProjectModified());
    }

    void failedLoadKeepsTheOpenProject_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("not a project") << QByteArray("hello world");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("truncated container") << QByteArray("OV1\x00\x0bproject.js", 15);
    }
    void failedLoadKeepsTheOpenProject()
    {
        QFETCH(QByteArray, content);
        QTemporaryDir dir;
        const QString bad = dir.path() + "/bad.kvpr";
        QFile f(bad);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(content);
        f.close();
        TestWindow w(nullptr);
        w.onNewProject();
        OVProject::Project *before = w.project();
        const QString id = before->id();
        QVERIFY(!w.loadProject(bad));
        QCOMPARE(w.project(), before);
        QCOMPARE(w.project()->id(), id);
        QCOMPARE(w.errors.size(), 1);
        QVERIFY2(w.errors.first().startsWith("Failed to load project"), qPrintable(w.errors.first()));
    }

    void recoveryCopyHoldsUnsavedWork()
    {
        QTemporaryDir dir;
        TestWindow w(nullptr);
        QVERIFY(w.saveRecoveryCopy().isEmpty()); // nothing open
        w.onNewProject();
        w.project()->setTitle("Unsaved coding");
        const QString copy = w.saveRecoveryCopy();
        QVERIFY(QFile::exists(copy));
        QVERIFY(w.isProjectModified()); // the project's own file is not touched
        TestWindow reader(nullptr);
        QVERIFY(reader.loadProject(copy));
        QCOMPARE(reader.project()->title(), QString("Unsaved coding"));
    }

    void codingFromTheKeyboardAndUndoThroughTheMenu()
    {
        QTemporaryDir dir;
        OVSettings settings;
        settings.open(dir.path() + "/settings.ini");
        settings.labeling()->setLabelingMode(2);
        settings.labeling()->setLeadOpenTime(1);
        settings.labeling()->setLeadCloseTime(0);
        TestWindow w(&settings);
        w.onNewProject();
        QAction *undo = w.actionRegistry()->action(OVActionRegistry::Undo);
        QAction *redo = w.actionRegistry()->action(OVActionRegistry::Redo);
        QVERIFY(!undo->isEnabled());
        w.project()->setVideoLength(60);
        w.project()->state()->setCurrentPos(10);
        w.show();
        QApplication::setActiveWindow(&w);
        QVERIFY(QTest::qWaitForWindowActive(&w));
        w.timelineControl()->setFocus();
        QTRY_VERIFY(w.timelineControl()->hasFocus() || w.timelineControl()->isAncestorOf(QApplication::focusWidget()));
        OVProject::Label *a = w.project()->timelineGroup()->timelines().first()->labels().first();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_A);
        QCOMPARE(a->segments().size(), 1);
        QCOMPARE(a->segments().first()->start(), 9.0);
        w.project()->state()->setCurrentPos(15);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_A);
        QCOMPARE(a->segments().first()->end(), 15.0);
        QVERIFY(undo->isEnabled());
        undo->trigger();
        QCOMPARE(a->segments().size(), 1);
        QCOMPARE(a->segments().first()->end(), OVProject::Segment::OpenEnd);
        undo->trigger();
        QCOMPARE(a->segments().size(), 0);
        QVERIFY(redo->isEnabled());
        redo->trigger();
        redo->trigger();
        QCOMPARE(a->segments().first()->end(), 15.0);
        QVERIFY(w.isProjectModified());
    }

    void openingARecordingSetsItsPathAndLength()
    {
        QTemporaryDir dir;
        const QString clip = dir.path() + "/clip.mp4";
        QProcess ff;
        ff.start("ffmpeg", { "-hide_banner", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                             "testsrc2=size=320x240:rate=25:duration=3", "-f", "lavfi", "-i",
                             "sine=frequency=440:duration=3", "-c:v", "libx264", "-pix_fmt", "yuv420p",
                             "-c:a", "aac", "-shortest", clip });
        QVERIFY(ff.waitForFinished(60000) && ff.exitCode() == 0);
        qputenv("KAVOT_NO_AUDIO_OUTPUT", "1");
        TestWindow w(nullptr);
        QSignalSpy init(w.playerPanel(), &OVPlayerPanel::initFinished);
        w.openFile(clip); // no project yet: one is made for the recording
        QVERIFY(w.project());
        QVERIFY(init.wait(20000));
        QCOMPARE(init.first().at(0).toInt(), 0);
        QCOMPARE(w.project()->videoPath(), clip);
        QTRY_VERIFY_WITH_TIMEOUT(qAbs(w.project()->videoLength() - 3.0) < 0.1, 10000);
        QVERIFY(w.errors.isEmpty());

        // A file the decoder cannot read is refused and the project keeps its recording.
        const QString bad = dir.path() + "/notes.mp4";
        QFile f(bad);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("these are notes, not a video\n");
        f.close();
        init.clear();
        w.openVideo(bad);
        QTRY_VERIFY_WITH_TIMEOUT(!w.errors.isEmpty(), 20000);
        QVERIFY2(w.errors.last().contains("Failed to open input"), qPrintable(w.errors.last()));
        QCOMPARE(w.project()->videoPath(), clip);
        QVERIFY(qAbs(w.project()->videoLength() - 3.0) < 0.1);

        // Saved, reopened and played again: opening alone must not mark the project modified.
        w.savePath = dir.path() + "/clip.kvpr";
        QVERIFY(w.onSaveProjectAs());
        QVERIFY(w.onCloseProject(true));
        init.clear();
        QVERIFY(w.loadProject(dir.path() + "/clip.kvpr"));
        QVERIFY(init.wait(20000));
        QTest::qWait(300);
        QVERIFY(!w.isProjectModified());

        // Closing the window while the recording plays ends without hanging.
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QTest::qWait(500);
        QVERIFY(w.close());
        QVERIFY(!w.project());
    }

    void openingMissingFilesSaysSo()
    {
        TestWindow w(nullptr);
        w.openFile("/no/such/file.kvpr");
        QCOMPARE(w.errors.size(), 1);
        QVERIFY(w.errors.first().contains("/no/such/file.kvpr"));
    }
};

QTEST_MAIN(TestKVMainWindow)
#include "tst_kvmainwindow.moc"
