#include "app/kvmainwindow.h"
#include "app/ovactionregistry.h"
#include "app/oveditaudiotracksdlg.h"
#include "app/ovplayercanvas.h"
#include "app/ovplayercontrols.h"
#include "app/ovplayerpanel.h"
#include "media/ovvideoplayer.h"
#include "log/nxlogwidget.h"
#include "project/label.h"
#include "project/ovlocalfilestorage.h"
#include "project/project.h"
#include "project/ovprojectjournal.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"
#include "settings/ovkeyboardsettings.h"
#include "settings/ovlabelingsettings.h"
#include "timeline/ovkeyboardcoder.h"
#include "timeline/ovtimelinecontrol.h"
#include "timeline/ovtimelinewidget.h"
#include "timeline/ovwaveformarea.h"
#include "settings/ovrecentprojects.h"
#include "settings/ovsettings.h"
#include "settings/ovuserinfosettings.h"
#include "settings/ovuisettings.h"
#include "widgets/ovspeedcontrol.h"

#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QSplitter>
#include <QSplitterHandle>
#include <QStatusBar>
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
    QMessageBox::StandardButton recoverAnswer = QMessageBox::Yes;
    QStringList recoverTexts;
    int unsavedAsked = 0;
    int crashAsked = 0;
    QStringList errors;
    QString openPath;
    QString savePath;
    ChangedFileChoice changedAnswer = KeepChangedFile;
    int changedAsked = 0;

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
    QMessageBox::StandardButton askRecoverUnsavedWork(const QString &text) override
    {
        recoverTexts << text;
        return recoverAnswer;
    }
    void showError(const QString &, const QString &message) override { errors << message; }
    bool showLoadError(const QString &, const QString &message) override
    {
        errors << message;
        return false;
    }
    QString chooseOpenPath() override { return openPath; }
    QString chooseSavePath() override { return savePath; }
    ChangedFileChoice askChangedFile(const QString &) override
    {
        ++changedAsked;
        return changedAnswer;
    }
};

bool ffmpeg(const QStringList &args)
{
    QProcess ff;
    ff.start("ffmpeg", QStringList { "-hide_banner", "-loglevel", "error", "-y" } + args);
    return ff.waitForFinished(60000) && ff.exitStatus() == QProcess::NormalExit && ff.exitCode() == 0;
}

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
        QVERIFY(w.isProjectModified());
        QVERIFY(w.windowTitle().contains("[*]"));
        QVERIFY(w.isWindowModified());
    }

    // The window is black; its status bar once drew every message in black on it.
    void statusMessagesCanBeRead()
    {
        TestWindow w(nullptr);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        w.statusBar()->showMessage("Playing without sound: the sound system did not answer within 10 s.");
        QCoreApplication::processEvents();
        const QImage image = w.grab(w.statusBar()->geometry()).toImage(); // with the window behind it
        QVERIFY(!image.isNull());
        // The most common shade is the background; the text must stand out from it.
        QHash<int, int> shades;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                ++shades[qGray(image.pixel(x, y))];
        int background = 0;
        for (auto it = shades.cbegin(); it != shades.cend(); ++it)
            if (it.value() > shades.value(background))
                background = it.key();
        int contrast = 0;
        for (auto it = shades.cbegin(); it != shades.cend(); ++it)
            contrast = std::max(contrast, std::abs(it.key() - background));
        QVERIFY2(contrast > 120, qPrintable(QString("text differs from the background by %1 of 255").arg(contrast)));
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

    void dockTogglesAndTeardown_data()
    {
        QTest::addColumn<QString>("dock");
        QTest::addColumn<int>("action"); // -1: the window's own log action
        QTest::newRow("log") << "dw_log" << -1;
        QTest::newRow("transcript") << "dw_transcript" << int(OVActionRegistry::Transcript);
        QTest::newRow("labels") << "dw_segments" << int(OVActionRegistry::Labels);
    }

    // A window is torn down with its dock open: the dock, hidden while the children go, must not
    // reach back into the window through its toggle (sanitizer builds caught it doing so).
    void dockTogglesAndTeardown()
    {
        QFETCH(QString, dock);
        QFETCH(int, action);
        auto w = std::make_unique<TestWindow>(nullptr);
        w->onNewProject();
        auto *d = w->findChild<QDockWidget *>(dock);
        QVERIFY(d);
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        QAction *toggle = action < 0 ? w->findChild<QAction *>("actionShowLog")
                                     : w->actionRegistry()->action(OVActionRegistry::ActionId(action));
        QVERIFY(toggle);
        toggle->setChecked(true);
        QTRY_VERIFY(d->isVisible());
        d->hide();
        QTRY_VERIFY(!toggle->isChecked());
        toggle->setChecked(true);
        QTRY_VERIFY(d->isVisible());
        w.reset();
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
        QVERIFY(w.waitForSaves());
        QCOMPARE(w.projectPath(), dir.path() + "/study.kvpr");
        QVERIFY(!w.isProjectModified());
        QVERIFY(w.windowTitle().startsWith("Playground study"));
        // A change deep in the model after the save sets the mark again; saving clears it.
        label->setName("Gaze at adult");
        QVERIFY(w.isProjectModified() && w.isWindowModified());
        QVERIFY(w.onSaveProject());
        QVERIFY(w.waitForSaves());
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

    void savingRunsBesideTheWork()
    {
        QTemporaryDir dir;
        TestWindow w(nullptr);
        w.onNewProject();
        OVProject::Label *label = w.project()->timelineGroup()->timelines().first()->labels().first();
        for (int i = 0; i < 20000; ++i)
            label->addSegment(new OVProject::Segment(i, i + 0.5));
        w.project()->setTitle("written");
        w.savePath = dir.path() + "/work.kvpr";
        QVERIFY(w.onSaveProjectAs());
        // Coding goes on while the file is written: that change is not in it and stays marked.
        w.project()->setTitle("coded meanwhile");
        QVERIFY(w.waitForSaves());
        QCOMPARE(w.projectPath(), dir.path() + "/work.kvpr");
        QVERIFY(w.isProjectModified());
        auto titleOnDisk = [&] {
            OVProject::Project p;
            return OVLocalFileStorage().load(dir.path() + "/work.kvpr", &p).isOk() ? p.title() : QString();
        };
        QCOMPARE(titleOnDisk(), QString("written"));

        // Another coder saved over the file meanwhile: asked, kept, then overwritten knowingly.
        OVProject::Project theirs;
        theirs.startNew("ben");
        theirs.setTitle("theirs");
        QVERIFY(OVLocalFileStorage().save(dir.path() + "/theirs.kvpr", &theirs).isOk());
        QVERIFY(QFile::remove(dir.path() + "/work.kvpr"));
        QVERIFY(QFile::rename(dir.path() + "/theirs.kvpr", dir.path() + "/work.kvpr"));
        QVERIFY(w.onSaveProject());
        QVERIFY(!w.waitForSaves());
        QCOMPARE(w.changedAsked, 1);
        QVERIFY(w.errors.isEmpty());
        QVERIFY(w.isProjectModified());
        QCOMPARE(titleOnDisk(), QString("theirs"));
        w.changedAnswer = KVMainWindow::OverwriteChangedFile;
        QVERIFY(w.onSaveProject());
        QVERIFY(w.waitForSaves());
        QCOMPARE(w.changedAsked, 2);
        QVERIFY(!w.isProjectModified());
        QCOMPARE(titleOnDisk(), QString("coded meanwhile"));

        // A failure says why, and the work stays marked unsaved in memory.
        w.project()->setTitle("unsaved");
        w.savePath = dir.path() + "/gone/work.kvpr";
        QVERIFY(w.onSaveProjectAs());
        QVERIFY(!w.waitForSaves());
        QCOMPARE(w.errors, QStringList { "Failed to save project to:\n" + dir.path() + "/gone/work.kvpr\n\nThe folder does not exist." });
        QCOMPARE(w.projectPath(), dir.path() + "/work.kvpr");
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
        // Started with several files, and the session ended while the first one's error was
        // shown: nothing more is opened, and nothing more asked.
        w.openStartupFiles({ bad, bad }, [&w] { return w.errors.size() > 1; });
        QCOMPARE(w.errors.size(), 2);
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

    void unsavedWorkIsOfferedBack_data()
    {
        QTest::addColumn<bool>("saved");
        QTest::addColumn<bool>("accept");
        QTest::newRow("saved project, taken back") << true << true;
        QTest::newRow("never saved, taken back") << false << true;
        QTest::newRow("declined") << true << false;
    }
    void unsavedWorkIsOfferedBack()
    {
        QFETCH(bool, saved);
        QFETCH(bool, accept);
        QTemporaryDir dir;
        QString path;
        OVProject::Id segmentId;
        {
            TestWindow w(nullptr);
            w.setDataFolder(dir.path());
            w.onNewProject();
            if (saved) {
                w.savePath = dir.path() + "/study.kvpr";
                QVERIFY(w.onSaveProjectAs());
                QVERIFY(w.waitForSaves());
                path = w.projectPath();
            }
            OVProject::Label *label = w.project()->timelineGroup()->timelines().first()->labels().at(1);
            auto *segment = new OVProject::Segment(3.0, 4.5);
            segmentId = segment->id();
            label->addSegment(segment);
            label->setName("Gaze");
            auto *utterance = new OVProject::Utterance;
            utterance->setStartTime(1.0);
            utterance->setEndTime(2.0);
            utterance->setText("hello");
            w.project()->timelineGroup()->timelines().first()->addUtterance(utterance);
            // Gone without closing its project, as a killed session is.
        }
        TestWindow next(nullptr);
        next.setDataFolder(dir.path());
        next.recoverAnswer = accept ? QMessageBox::Yes : QMessageBox::No;
        next.offerUnsavedWork(true);
        QCOMPARE(next.recoverTexts.size(), 1);
        const QString text = next.recoverTexts.first();
        QVERIFY2(text.contains("3 changes") && text.contains("the project has 1 segment and 1 utterance."), qPrintable(text));
        QVERIFY2(text.contains(saved ? "with 0 segments." : "never saved"), qPrintable(text));
        QVERIFY(next.errors.isEmpty());
        const QStringList aside = QDir(dir.path()).entryList({ "journal-*.kvj" });
        if (!accept) {
            QVERIFY(!next.project());
            QCOMPARE(aside.size(), 1); // declined work is put aside, not deleted
            return;
        }
        QVERIFY(next.project());
        QCOMPARE(next.projectPath(), path);
        QVERIFY(next.isProjectModified());
        OVProject::Timeline *timeline = next.project()->timelineGroup()->timelines().first();
        QCOMPARE(timeline->labels().at(1)->name(), QString("Gaze"));
        OVProject::Segment *back = timeline->findSegment(segmentId);
        QVERIFY(back && back->start() == 3.0 && back->end() == 4.5);
        if (saved) {
            // Started as `kavot study.kvpr` is: the file named must not replace the work taken back.
            next.openStartupFiles({ path });
            QCOMPARE(next.unsavedAsked, 0);
            QVERIFY(next.project()->timelineGroup()->timelines().first()->findSegment(segmentId));
        }
        // The work is in the new session's journal now, and offered again if this one dies too
        // before anything more was done or saved.
        QVERIFY(aside.isEmpty());
        QVERIFY(next.journal()->isActive());
        next.journal()->stop();
        TestWindow third(nullptr);
        third.setDataFolder(dir.path());
        third.offerUnsavedWork(true);
        QCOMPARE(third.recoverTexts.size(), 1);
        QVERIFY2(third.recoverTexts.first().contains("the project has 1 segment and 1 utterance."), qPrintable(third.recoverTexts.first()));
        QVERIFY(third.project());
        QVERIFY(third.project()->timelineGroup()->timelines().first()->findSegment(segmentId));
        if (saved) {
            // Saving the work taken back makes the project clean, as any save does.
            QVERIFY(third.onSaveProject());
            QVERIFY(third.waitForSaves());
            QVERIFY(!third.isProjectModified());
            // ...and leaves the journal nothing to offer: the file holds it all.
            third.journal()->stop();
            TestWindow fourth(nullptr);
            fourth.setDataFolder(dir.path());
            fourth.offerUnsavedWork(true);
            QVERIFY(fourth.recoverTexts.isEmpty());
        }
    }

    void autosaveSavesOnlyChangedProjectsThatHaveAFile_data()
    {
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<bool>("hasFile");
        QTest::addColumn<bool>("changed");
        QTest::addColumn<bool>("expectSaved");
        QTest::newRow("changed project with a file") << true << true << true << true;
        QTest::newRow("never saved") << true << false << true << false;
        QTest::newRow("no changes") << true << true << false << false;
        QTest::newRow("switched off") << false << true << true << false;
    }
    void autosaveSavesOnlyChangedProjectsThatHaveAFile()
    {
        QFETCH(bool, enabled);
        QFETCH(bool, hasFile);
        QFETCH(bool, changed);
        QFETCH(bool, expectSaved);
        QTemporaryDir dir;
        OVSettings settings;
        settings.open(dir.path() + "/settings.ini");
        settings.ui()->setAutosave(enabled);
        TestWindow w(&settings);
        w.setDataFolder(dir.path());
        w.onNewProject();
        const QString file = dir.path() + "/auto.kvpr";
        if (hasFile) {
            w.savePath = file;
            QVERIFY(w.onSaveProjectAs());
            QVERIFY(w.waitForSaves());
        }
        if (changed)
            w.project()->setTitle("Coded on");
        w.onAutosaveTimer();
        QVERIFY(w.waitForSaves());
        QCOMPARE(w.isProjectModified(), changed && !expectSaved);
        if (hasFile) {
            TestWindow reader(nullptr);
            reader.setDataFolder(dir.path() + "/reader");
            QVERIFY(reader.loadProject(file));
            QCOMPARE(reader.project()->title() == "Coded on", expectSaved);
        }
        QVERIFY(w.errors.isEmpty());
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
        w.timelineControl()->timelineWidget()->setLabelingEnabled(true);
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

        // The mark follows the history: away from the saved state and back again.
        w.setModified(false); // as a save does
        undo->trigger();
        QVERIFY(w.isProjectModified());
        redo->trigger();
        QVERIFY(!w.isProjectModified());
        QVERIFY(!w.isWindowModified());
        // A change outside the history stays until the next save, whatever undo does.
        w.project()->setTitle("Retitled");
        undo->trigger();
        redo->trigger();
        QVERIFY(w.isProjectModified());
    }

    // Coding keys code whichever pane has the focus, unless it is one that types.
    void codingWhicheverPaneHasFocus_data()
    {
        QTest::addColumn<QString>("pane");
        QTest::addColumn<bool>("codes");
        QTest::newRow("coding surface") << "timeline" << true;
        QTest::newRow("picture") << "canvas" << true;
        QTest::newRow("speed button") << "speed" << true;
        QTest::newRow("no focus") << "none" << true;
        QTest::newRow("text field in a dock") << "edit" << false;
    }
    void codingWhicheverPaneHasFocus()
    {
        QFETCH(QString, pane);
        QFETCH(bool, codes);
        QTemporaryDir dir;
        OVSettings settings;
        settings.open(dir.path() + "/settings.ini");
        TestWindow w(&settings);
        w.onNewProject();
        w.project()->setVideoLength(60);
        w.project()->state()->setCurrentPos(10);
        auto *dock = new QDockWidget(&w);
        auto *edit = new QLineEdit(dock);
        dock->setWidget(edit);
        w.addDockWidget(Qt::RightDockWidgetArea, dock);
        w.show();
        QApplication::setActiveWindow(&w);
        QVERIFY(QTest::qWaitForWindowActive(&w));
        w.timelineControl()->timelineWidget()->setLabelingEnabled(true);
        const QHash<QString, QWidget *> panes {
            { "timeline", w.timelineControl()->timelineWidget() }, { "canvas", w.playerPanel()->canvas() },
            { "speed", w.playerPanel()->controls()->speedControl() },
            { "none", &w }, { "edit", edit } };
        QWidget *target = panes.value(pane);
        if (target == &w) {
            if (QApplication::focusWidget())
                QApplication::focusWidget()->clearFocus();
            QVERIFY(!QApplication::focusWidget());
        } else {
            target->setFocus();
            QTRY_COMPARE(QApplication::focusWidget(), target);
        }
        QTest::keyClick(target, Qt::Key_A);
        OVProject::Label *a = w.project()->timelineGroup()->timelines().first()->labels().first();
        QCOMPARE(a->segments().size(), codes ? 1 : 0);
        QCOMPARE(edit->text().isEmpty(), codes);
    }

    void openingAndMovingAroundARecording()
    {
        QTemporaryDir dir;
        const QString clip = dir.path() + "/clip.mp4";
        QVERIFY(ffmpeg({ "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=8", "-f", "lavfi", "-i",
                         "sine=frequency=440:duration=8", "-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "aac",
                         "-shortest", clip }));
        qputenv("KAVOT_NO_AUDIO_OUTPUT", "1");
        OVSettings settings;
        settings.open(dir.path() + "/settings.ini");
        TestWindow w(&settings);
        OVPlayerPanel *panel = w.playerPanel();
        OVVideoPlayer *player = panel->player();
        QSignalSpy init(panel, &OVPlayerPanel::initFinished);
        w.openFile(clip); // no project yet: one is made for the recording
        QVERIFY(w.project());
        QVERIFY(init.wait(20000));
        QCOMPARE(init.first().at(0).toInt(), 0);
        QCOMPARE(w.project()->videoPath(), clip);
        QTRY_VERIFY_WITH_TIMEOUT(qAbs(w.project()->videoLength() - 8.0) < 0.1, 10000);
        QVERIFY(w.errors.isEmpty());
        // The strip under the rows shows the recording's sound; View > Waveforms hides it.
        OVWaveformArea *waveforms = w.timelineControl()->timelineWidget()->waveformArea();
        QTRY_COMPARE_WITH_TIMEOUT(waveforms->trackCount(), 1, 20000);
        QAction *showWaveforms = w.actionRegistry()->action(OVActionRegistry::Waveforms);
        QVERIFY(showWaveforms->isChecked());
        showWaveforms->trigger();
        QVERIFY(waveforms->isHidden());
        showWaveforms->trigger();
        QVERIFY(!waveforms->isHidden());
        w.savePath = dir.path() + "/clip.kvpr";
        QVERIFY(w.onSaveProjectAs());
        // The save is written on a worker; the project is unmodified once it is on disk.
        QTRY_VERIFY_WITH_TIMEOUT(!w.isProjectModified(), 20000);

        // A file the decoder cannot read is refused by name; the project keeps its recording
        // (unmodified) and the recording plays on.
        const QString bad = dir.path() + "/notes.mp4";
        QFile f(bad);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("these are notes, not a video\n");
        f.close();
        w.openVideo(bad);
        QTRY_VERIFY_WITH_TIMEOUT(!w.errors.isEmpty(), 20000);
        QVERIFY2(w.errors.last().contains(bad), qPrintable(w.errors.last()));
        QCOMPARE(w.project()->videoPath(), clip);
        QVERIFY(qAbs(w.project()->videoLength() - 8.0) < 0.1);
        QVERIFY(!w.isProjectModified());
        QCOMPARE(panel->mediaPath(), clip);
        QVERIFY(player->state() == OVVideoPlayer::Playing);

        // Left and Right: one picture while paused, a few seconds while playing.
        w.show();
        QApplication::setActiveWindow(&w);
        QVERIFY(QTest::qWaitForWindowActive(&w));
        panel->togglePlayback();
        panel->onSeekRequested(5.0);
        QTRY_VERIFY_WITH_TIMEOUT(player->state() == OVVideoPlayer::Paused && panel->canvas()->currentFrame()
                                     && qAbs(panel->canvas()->currentFrame()->time - 5.0) < 0.1,
                                 20000);
        const double shown = panel->canvas()->currentFrame()->time;
        QTest::mouseClick(panel->canvas(), Qt::LeftButton);
        QCOMPARE(QApplication::focusWidget(), panel->canvas());
        // Two presses in quick succession are two pictures, even while the first is on its way.
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &w, Qt::Key_Right);
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &w, Qt::Key_Right);
        QTRY_VERIFY_WITH_TIMEOUT(qAbs(panel->canvas()->currentFrame()->time - (shown + 0.08)) < 1e-3, 20000);
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &w, Qt::Key_Left);
        const double stepped = shown + 0.04;
        QTRY_VERIFY_WITH_TIMEOUT(qAbs(panel->canvas()->currentFrame()->time - stepped) < 1e-3, 20000);
        QTRY_COMPARE_WITH_TIMEOUT(player->state(), OVVideoPlayer::Paused, 5000);

        // Reopened, the project is back where playback stood, paused there.
        QVERIFY(w.onCloseProject(true));
        init.clear();
        QVERIFY(w.loadProject(dir.path() + "/clip.kvpr"));
        QVERIFY(init.wait(20000));
        // The very picture that was on screen.
        QTRY_VERIFY_WITH_TIMEOUT(player->state() == OVVideoPlayer::Paused && panel->canvas()->currentFrame()
                                     && qAbs(panel->canvas()->currentFrame()->time - stepped) < 1e-3,
                                 20000);
        QTest::qWait(300);
        QVERIFY(!w.isProjectModified());

        panel->togglePlayback();
        QCOMPARE(player->state(), OVVideoPlayer::Playing);
        QTest::mouseClick(panel->canvas(), Qt::LeftButton);
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &w, Qt::Key_Left);
        QTRY_VERIFY_WITH_TIMEOUT(player->position() < stepped - 3.0, 20000);

        // Playback that ends in an error is told by name, and coding stops until it plays again.
        OVTimelineWidget *timeline = w.timelineControl()->timelineWidget();
        OVKeyboardCoder *coder = w.timelineControl()->coder();
        timeline->setLabelingEnabled(true);
        QMetaObject::invokeMethod(player, &OVVideoDecoderBase::errorRaised, Qt::QueuedConnection);
        QTRY_COMPARE_WITH_TIMEOUT(w.errors.size(), 2, 5000);
        QVERIFY2(w.errors.last().contains(clip), qPrintable(w.errors.last()));
        QVERIFY(timeline->labelingMessage().contains("clip.mp4"));
        OVProject::Label *a = w.project()->timelineGroup()->timelines().first()->labels().first();
        QCOMPARE(coder->code('A').outcome, OVKeyboardCoder::Blocked);
        QVERIFY(a->segments().isEmpty());
        panel->togglePlayback(); // paused: the player answers again
        QVERIFY(!timeline->labelingMessage().contains("clip.mp4"));
        QVERIFY(coder->code('A').changed());

        // Closing the window while the recording plays ends without hanging.
        panel->togglePlayback();
        QTest::qWait(300);
        w.unsavedAnswer = QMessageBox::Discard;
        QVERIFY(w.close());
        QVERIFY(!w.project());
    }

    void recoveredWorkStartsWhereTheRecordingStood()
    {
        QTemporaryDir dir;
        const QString clip = dir.path() + "/clip.mp4";
        QVERIFY(ffmpeg({ "-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25:duration=6", "-c:v", "libx264", "-pix_fmt",
                         "yuv420p", clip }));
        qputenv("KAVOT_NO_AUDIO_OUTPUT", "1");
        OVSettings settings;
        settings.open(dir.path() + "/settings.ini");
        double shown = -1.0;
        {
            TestWindow w(&settings);
            w.setDataFolder(dir.path());
            OVPlayerPanel *panel = w.playerPanel();
            QSignalSpy init(panel, &OVPlayerPanel::initFinished);
            w.openFile(clip); // a project made for the recording, in no file
            QVERIFY(init.wait(20000));
            panel->togglePlayback();
            panel->onSeekRequested(4.0);
            QTRY_VERIFY_WITH_TIMEOUT(panel->player()->state() == OVVideoPlayer::Paused && panel->canvas()->currentFrame()
                                         && qAbs(panel->canvas()->currentFrame()->time - 4.0) < 0.1,
                                     20000);
            shown = panel->canvas()->currentFrame()->time;
            w.project()->timelineGroup()->timelines().first()->labels().first()->setName("Gaze");
            OVProjectJournal::Summary summary;
            QTRY_VERIFY_WITH_TIMEOUT(OVProjectJournal::readSummary(dir.path() + "/journal.kvj", &summary).isOk()
                                         && qAbs(summary.position - shown) < 1e-3,
                                     5000);
            // Gone without closing its project, as a killed session is.
        }
        TestWindow next(&settings);
        next.setDataFolder(dir.path());
        OVPlayerPanel *panel = next.playerPanel();
        QSignalSpy init(panel, &OVPlayerPanel::initFinished);
        next.offerUnsavedWork(true);
        QCOMPARE(next.recoverTexts.size(), 1);
        QVERIFY(init.wait(20000));
        QCOMPARE(init.first().at(0).toInt(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(panel->player()->state() == OVVideoPlayer::Paused && panel->canvas()->currentFrame()
                                     && qAbs(panel->canvas()->currentFrame()->time - shown) < 1e-3,
                                 20000);
    }

    void aBackupFolderThatCannotBeWrittenIsToldOnce_data()
    {
        QTest::addColumn<bool>("toldAtStart");
        QTest::newRow("found by a save") << false;
        QTest::newRow("data folder told at start") << true;
    }
    void aBackupFolderThatCannotBeWrittenIsToldOnce()
    {
        QFETCH(bool, toldAtStart);
        QTemporaryDir dir;
        // A file where the backup folder should be: no save can keep the version it replaces.
        const QString backups = OVLocalFileStorage::backupFolder();
        QVERIFY(QDir().mkpath(QFileInfo(backups).absolutePath()));
        QDir(backups).removeRecursively();
        QFile blocker(backups);
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        TestWindow w(nullptr);
        w.setDataFolder(dir.path());
        if (toldAtStart)
            w.notifyDataFolderProblem("data folder");
        w.onNewProject();
        w.savePath = dir.path() + "/study.kvpr";
        QVERIFY(w.onSaveProjectAs());
        QVERIFY(w.waitForSaves());
        for (int i = 0; i < 3; ++i) {
            w.project()->timelineGroup()->timelines().first()->labels().first()->setName(QString("Gaze %1").arg(i));
            QVERIFY(w.onSaveProject());
            QVERIFY(w.waitForSaves());
        }
        QFile::remove(backups);
        QCOMPARE(w.errors.size(), 1);
        QVERIFY2(w.errors.first().contains(toldAtStart ? "data folder" : "could not be kept"), qPrintable(w.errors.first()));
        QVERIFY(!w.isProjectModified());
    }

    // What the user set up around a recording (the stream that plays, the waveform strip shown or
    // hidden and its height) is there again when the project is opened in a later session.
    void recordingSetUpSurvivesASession_data()
    {
        QTest::addColumn<bool>("leftShown");
        QTest::newRow("strip left shown") << true;
        QTest::newRow("strip left hidden") << false;
    }

    void recordingSetUpSurvivesASession()
    {
        QFETCH(bool, leftShown);
        QTemporaryDir dir;
        const QString clip = dir.path() + "/two-voices.mkv";
        QVERIFY(makeTwoVoiceClip(clip));
        qputenv("KAVOT_NO_AUDIO_OUTPUT", "1");
        const QString project = dir.path() + "/two-voices.kvpr";
        const QString ini = dir.path() + "/settings.ini";
        int chosenHeight = -1;
        {
            OVSettings settings;
            settings.open(ini);
            TestWindow w(&settings);
            w.show();
            QVERIFY(QTest::qWaitForWindowExposed(&w));
            QSignalSpy init(w.playerPanel(), &OVPlayerPanel::initFinished);
            w.openFile(clip);
            QVERIFY(init.wait(20000));
            QCOMPARE(init.first().at(0).toInt(), 0);
            OVTimelineWidget *timeline = w.timelineControl()->timelineWidget();
            QTRY_COMPARE_WITH_TIMEOUT(timeline->waveformArea()->trackCount(), 2, 20000);

            // The second stream is chosen in File > Edit Audio Tracks.
            bool played = false;
            QTimer::singleShot(0, this, [&] {
                auto *dialog = qobject_cast<OVEditAudioTracksDlg *>(QApplication::activeModalWidget());
                if (!dialog)
                    return;
                dialog->setSelectedStream(1);
                dialog->findChild<QPushButton *>("btn_play")->click();
                played = true;
                dialog->reject();
            });
            w.actionRegistry()->action(OVActionRegistry::EditAudioTracks)->trigger();
            QVERIFY(played);
            QCOMPARE(w.playerPanel()->player()->preferredAudioStream(), 1);

            // The strip is made taller by its handle, then hidden.
            QSplitterHandle *handle = timeline->findChild<QSplitter *>()->handle(1);
            const QPoint grip(handle->width() / 2, handle->height() / 2);
            const QPoint up = grip - QPoint(0, 37);
            const auto mouse = [&](QEvent::Type type, const QPoint &at, Qt::MouseButton button, Qt::MouseButtons held) {
                QMouseEvent e(type, at, handle->mapToGlobal(at), button, held, Qt::NoModifier);
                QApplication::sendEvent(handle, &e);
            };
            const int before = timeline->waveformArea()->height();
            mouse(QEvent::MouseButtonPress, grip, Qt::LeftButton, Qt::LeftButton);
            mouse(QEvent::MouseMove, up, Qt::NoButton, Qt::LeftButton);
            mouse(QEvent::MouseButtonRelease, up, Qt::LeftButton, Qt::NoButton);
            chosenHeight = timeline->waveformArea()->height();
            QCOMPARE(chosenHeight, before + 37);
            if (!leftShown) {
                w.actionRegistry()->action(OVActionRegistry::Waveforms)->trigger();
                QVERIFY(timeline->waveformArea()->isHidden());
            }

            w.savePath = project;
            QVERIFY(w.onSaveProjectAs());
            QVERIFY(w.waitForSaves());
            QVERIFY(w.close());
        }

        OVSettings settings;
        settings.open(ini);
        TestWindow w(&settings);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        OVTimelineWidget *timeline = w.timelineControl()->timelineWidget();
        QAction *showWaveforms = w.actionRegistry()->action(OVActionRegistry::Waveforms);
        QCOMPARE(showWaveforms->isChecked(), leftShown);
        QCOMPARE(timeline->waveformArea()->isHidden(), !leftShown);
        QSignalSpy init(w.playerPanel(), &OVPlayerPanel::initFinished);
        w.openFile(project);
        QVERIFY(init.wait(20000));
        QCOMPARE(init.first().at(0).toInt(), 0);
        QCOMPARE(w.playerPanel()->player()->preferredAudioStream(), 1);
        if (!leftShown)
            showWaveforms->trigger();
        // At its height once its sound is in, which would otherwise size it for two tracks.
        QTRY_COMPARE_WITH_TIMEOUT(timeline->waveformArea()->trackCount(), 2, 20000);
        QTRY_COMPARE(timeline->waveformArea()->height(), chosenHeight);
    }

    static bool makeTwoVoiceClip(const QString &clip)
    {
        return ffmpeg({ "-f", "lavfi", "-i", "testsrc=size=160x120:rate=25:duration=4", "-f", "lavfi", "-i",
                        "sine=f=300:d=4", "-f", "lavfi", "-i", "sine=f=700:d=4", "-map", "0", "-map", "1", "-map", "2",
                        "-c:v", "mpeg4", "-c:a", "pcm_s16le", clip });
    }

    // Opening a recording whose remembered stream differs from the playing one's must not restart
    // the playing one first: it would be heard again for a moment, and a file being rewritten
    // would be read while it changes.
    void anotherRecordingStartsOneRun()
    {
        QTemporaryDir dir;
        const QString first = dir.path() + "/first.mkv";
        const QString second = dir.path() + "/second.mkv";
        QVERIFY(makeTwoVoiceClip(first));
        QVERIFY(QFile::copy(first, second));
        qputenv("KAVOT_NO_AUDIO_OUTPUT", "1");
        OVSettings settings;
        settings.open(dir.path() + "/settings.ini");
        settings.ui()->setPlayingAudioStream(first, 1);
        TestWindow w(&settings);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        OVVideoPlayer *player = w.playerPanel()->player();
        QSignalSpy init(w.playerPanel(), &OVPlayerPanel::initFinished);
        w.openFile(first);
        QVERIFY(init.wait(20000));
        QCOMPARE(player->preferredAudioStream(), 1);
        QSignalSpy runs(player, &QThread::started);
        init.clear();
        w.openFile(second);
        QVERIFY(init.wait(20000));
        QCOMPARE(init.first().at(0).toInt(), 0);
        QCOMPARE(player->path(), second);
        QCOMPARE(player->preferredAudioStream(), 0);
        QCOMPARE(runs.size(), 1);
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
