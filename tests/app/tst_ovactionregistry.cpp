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
        QTest::addColumn<QString>("category");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("shortcut");
        QTest::newRow("23") << 23 << "Transcription" << "Enable Transcribing" << "CTRL+SHIFT+E";
        QTest::newRow("1") << 1 << "Transcription" << "Enable Looping" << "CTRL+SHIFT+L";
        QTest::newRow("2") << 2 << "Transcription" << "Advance Loop Forward" << "CTRL+SHIFT+.";
        QTest::newRow("3") << 3 << "Transcription" << "Advance Loop Backward" << "CTRL+SHIFT+,";
        QTest::newRow("4") << 4 << "Transcription" << "Start New Utterance" << "CTRL+SHIFT+RETURN";
        QTest::newRow("5") << 5 << "Transcription" << "Finish Utterance" << "CTRL+SHIFT+RETURN";
        QTest::newRow("19") << 19 << "Transcription" << "Show Transcripts On Video" << "CTRL+SHIFT+U";
        QTest::newRow("6") << 6 << "Playback" << "Volume Up" << "CTRL+SHIFT+UP";
        QTest::newRow("7") << 7 << "Playback" << "Volume Down" << "CTRL+SHIFT+DOWN";
        QTest::newRow("8") << 8 << "Playback" << "Speed Up" << "CTRL+SHIFT+]";
        QTest::newRow("9") << 9 << "Playback" << "Speed Down" << "CTRL+SHIFT+[";
        QTest::newRow("10") << 10 << "Playback" << "Seek Forward" << "CTRL+SHIFT+'";
        QTest::newRow("11") << 11 << "Playback" << "Seek Backward" << "CTRL+SHIFT+;";
        QTest::newRow("12") << 12 << "Playback" << "Toggle Playback" << "CTRL+SHIFT+SPACE";
        QTest::newRow("20") << 20 << "Timeline" << "Add Label" << "CTRL+SHIFT+N";
        QTest::newRow("24") << 24 << "File" << "Settings" << "CTRL+SHIFT+S";
        QTest::newRow("61") << 61 << "Edit" << "Undo" << "CTRL+Z";
        QTest::newRow("62") << 62 << "Edit" << "Redo" << "CTRL+SHIFT+Z";
        QTest::newRow("13 no default") << 13 << "File" << "Open Video or Audio" << "";
        QTest::newRow("38 no default") << 38 << "File" << "Save Project As..." << "";
        QTest::newRow("70 no default") << 70 << "Transcription" << "Export Transcript (Excel)" << "";
    }
    void defaults()
    {
        QFETCH(int, id);
        QFETCH(QString, category);
        QFETCH(QString, title);
        QFETCH(QString, shortcut);
        const OVActionInfo *info = OVActionRegistry::info(id);
        QVERIFY(info);
        QCOMPARE(info->category, category);
        QCOMPARE(info->title, title);
        QCOMPARE(info->defaultShortcut, shortcut);
        // Every default must parse: a typo would silently leave the action without a key.
        if (!shortcut.isEmpty())
            QVERIFY(!QKeySequence(shortcut, QKeySequence::PortableText).isEmpty());
        OVActionRegistry registry;
        QCOMPARE(registry.action(id)->text(), title);
        QCOMPARE(registry.action(id)->shortcut(), QKeySequence(shortcut, QKeySequence::PortableText));
    }

    void tableIsCompleteAndUnique()
    {
        QSet<int> ids;
        for (const OVActionInfo &i : OVActionRegistry::table()) {
            QVERIFY2(!ids.contains(i.id), qPrintable(QString::number(i.id)));
            ids.insert(i.id);
        }
        // 1..70 except 29 and 60, which are not actions.
        QCOMPARE(ids.size(), 68);
        QVERIFY(!ids.contains(29) && !ids.contains(60));
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
