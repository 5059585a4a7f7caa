#include "app/ovactionregistry.h"
#include "settings/ovkeyboardsettings.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QHBoxLayout>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QSet>
#include <QtTest>

class TestOVActionRegistry : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void standardKeysStayBesideAssignedOnes_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<QString>("assigned"); // "-" for none
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("save") << int(OVActionRegistry::SaveProject) << "-" << QStringList { "Ctrl+S" };
        QTest::newRow("save with the user's key") << int(OVActionRegistry::SaveProject) << "F2" << QStringList { "F2", "Ctrl+S" };
        QTest::newRow("quit: no platform key") << int(OVActionRegistry::CloseApplication) << "-" << QStringList { "Ctrl+Q" };
        QTest::newRow("quit assigned the same key") << int(OVActionRegistry::CloseApplication) << "Ctrl+Q" << QStringList { "Ctrl+Q" };
        QTest::newRow("settings keeps its own only") << int(OVActionRegistry::Settings) << "-" << QStringList { "Ctrl+Shift+S" };
    }
    void standardKeysStayBesideAssignedOnes()
    {
        QFETCH(int, id);
        QFETCH(QString, assigned);
        QFETCH(QStringList, expected);
        OVKeyboardSettings keyboard;
        if (assigned != "-")
            keyboard.setShortcut(id, assigned);
        OVActionRegistry registry;
        QAction *action = registry.action(id);
        registry.applyShortcuts(&keyboard);
        QStringList got;
        for (const QKeySequence &k : action->shortcuts())
            got << k.toString(QKeySequence::PortableText);
        QCOMPARE(got, expected);
    }

    void everyDefaultParses()
    {
        // A typo in a default would silently leave its action without a key.
        for (const OVActionInfo &i : OVActionRegistry::table()) {
            if (!i.defaultShortcut.isEmpty())
                QVERIFY2(!QKeySequence(i.defaultShortcut, QKeySequence::PortableText).isEmpty(), qPrintable(i.title));
        }
    }

    void idsAreUnique()
    {
        // A stored "Action<id>" shortcut must name one action.
        QSet<int> ids;
        for (const OVActionInfo &i : OVActionRegistry::table()) {
            QVERIFY2(!ids.contains(i.id), qPrintable(QString::number(i.id)));
            ids.insert(i.id);
        }
    }

    // Live means handled: being in a menu is not enough.
    void liveOnceHandled()
    {
        OVActionRegistry registry;
        QMenu menu;
        QAction *undo = registry.action(OVActionRegistry::Undo);
        QAction *fullscreen = registry.action(OVActionRegistry::Fullscreen);
        menu.addAction(undo);
        menu.addAction(fullscreen);
        QVERIFY(!registry.isLive(OVActionRegistry::Undo));
        QVERIFY(!registry.isLive(OVActionRegistry::Redo)); // never made
        const auto c = connect(undo, &QAction::triggered, this, [] {});
        connect(fullscreen, &QAction::toggled, this, [] {});
        QVERIFY(registry.isLive(OVActionRegistry::Undo));
        QVERIFY(registry.isLive(OVActionRegistry::Fullscreen));
        disconnect(c);
        QVERIFY(!registry.isLive(OVActionRegistry::Undo));
    }

    // Window actions work from any pane of the window but not in a dialog over it; actions scoped
    // to a view only while the focus is in it, leaving the key to the other panes.
    void shortcutScopes()
    {
        OVActionRegistry registry;
        QWidget window;
        auto *layout = new QHBoxLayout(&window);
        auto *view = new QWidget(&window);
        auto *viewChild = new QPushButton(view);
        auto *list = new QListWidget(&window);
        list->addItems({ "one", "two", "three" });
        layout->addWidget(view);
        layout->addWidget(list);
        QAction *step = registry.action(OVActionRegistry::StepForward);
        QAction *toggle = registry.action(OVActionRegistry::TogglePlayback);
        window.addAction(toggle);
        registry.scopeToViews(OVActionRegistry::StepForward, { view });
        QSignalSpy steps(step, &QAction::triggered);
        QSignalSpy toggles(toggle, &QAction::triggered);
        window.show();
        QApplication::setActiveWindow(&window);
        QVERIFY(QTest::qWaitForWindowActive(&window));

        viewChild->setFocus();
        QTest::keyClick(viewChild, Qt::Key_Right);
        QCOMPARE(steps.count(), 1);
        list->setFocus();
        QTest::keyClick(list, Qt::Key_Right);
        QCOMPARE(steps.count(), 1);
        QTest::keyClick(list, Qt::Key_Space, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(toggles.count(), 1);

        QDialog dialog(&window);
        auto *field = new QListWidget(&dialog);
        dialog.show();
        QApplication::setActiveWindow(&dialog);
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        field->setFocus();
        QTest::keyClick(field, Qt::Key_Space, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(toggles.count(), 1);
    }

    void userShortcutsOverrideDefaults()
    {
        OVKeyboardSettings keyboard;
        OVActionRegistry registry;
        QAction *toggle = registry.action(OVActionRegistry::TogglePlayback);
        QAction *undo = registry.action(OVActionRegistry::Undo);
        QAction *open = registry.action(OVActionRegistry::OpenVideo);
        keyboard.setShortcut(OVActionRegistry::TogglePlayback, "Ctrl+P");
        keyboard.setShortcut(OVActionRegistry::Undo, ""); // cleared
        keyboard.setShortcut(OVActionRegistry::OpenVideo, "Ctrl+Shift+O");
        registry.applyShortcuts(&keyboard);
        QCOMPARE(toggle->shortcut(), QKeySequence("Ctrl+P"));
        QVERIFY(undo->shortcut().isEmpty());
        QCOMPARE(open->shortcut(), QKeySequence("Ctrl+Shift+O"));
        keyboard.resetShortcut(OVActionRegistry::Undo);
        registry.applyShortcuts(&keyboard);
        QCOMPARE(undo->shortcut(), QKeySequence("Ctrl+Z"));
    }
};

QTEST_MAIN(TestOVActionRegistry)
#include "tst_ovactionregistry.moc"
