#include "app/ovactionregistry.h"
#include "settings/ovkeyboardsettings.h"

#include <QAction>
#include <QSet>
#include <QtTest>

class TestOVActionRegistry : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void defaults_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("shortcut");
        // The two actions that share a default on purpose, one with punctuation, one without any.
        QTest::newRow("4") << 4 << "Start New Utterance" << "CTRL+SHIFT+RETURN";
        QTest::newRow("5") << 5 << "Finish Utterance" << "CTRL+SHIFT+RETURN";
        QTest::newRow("10") << 10 << "Seek Forward" << "CTRL+SHIFT+'";
        QTest::newRow("38 no default") << 38 << "Save Project As..." << "";
    }
    void defaults()
    {
        QFETCH(int, id);
        QFETCH(QString, title);
        QFETCH(QString, shortcut);
        OVActionRegistry registry;
        QCOMPARE(registry.action(id)->text(), title);
        QCOMPARE(registry.action(id)->shortcut(), QKeySequence(shortcut, QKeySequence::PortableText));
    }

    void standardKeysStayBesideAssignedOnes_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<QString>("assigned"); // "-" for none
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("save") << int(OVActionRegistry::SaveProject) << "-" << QStringList { "Ctrl+S" };
        QTest::newRow("save with the user's key") << int(OVActionRegistry::SaveProject) << "F2" << QStringList { "F2", "Ctrl+S" };
        QTest::newRow("open") << int(OVActionRegistry::OpenProject) << "-" << QStringList { "Ctrl+O" };
        QTest::newRow("new") << int(OVActionRegistry::NewProject) << "-" << QStringList { "Ctrl+N" };
        QTest::newRow("quit") << int(OVActionRegistry::CloseApplication) << "-" << QStringList { "Ctrl+Q" };
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

    void tableIsCompleteAndUnique()
    {
        QSet<int> ids;
        for (const OVActionInfo &i : OVActionRegistry::table()) {
            QVERIFY2(!ids.contains(i.id), qPrintable(QString::number(i.id)));
            ids.insert(i.id);
        }
        QVERIFY(!ids.contains(29) && !ids.contains(60)); // not actions
        QVERIFY(OVActionRegistry::info(1)->checkable && OVActionRegistry::info(19)->checkable
                && OVActionRegistry::info(23)->checkable && !OVActionRegistry::info(12)->checkable);
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
