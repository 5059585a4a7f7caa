#include "app/ovactionregistry.h"
#include "app/ovkeyboardsettingswidget.h"
#include "app/ovshortcutedit.h"
#include "settings/ovkeyboardsettings.h"

#include <QAction>
#include <QPushButton>
#include <QTreeWidget>
#include <QtTest>

class TestOVKeyboardSettingsWidget : public QObject
{
    Q_OBJECT

    static void select(OVKeyboardSettingsWidget &page, int id)
    {
        auto *tree = page.findChild<QTreeWidget *>("tw_actions");
        for (int i = 0; i < tree->topLevelItemCount(); ++i) {
            if (tree->topLevelItem(i)->data(0, Qt::UserRole + 1).toInt() == id) {
                tree->setCurrentItem(tree->topLevelItem(i));
                return;
            }
        }
        QFAIL("action not listed");
    }

private Q_SLOTS:
    void codingConflict_data()
    {
        QTest::addColumn<QString>("sequence");
        QTest::addColumn<bool>("refused");
        QTest::newRow("bare letter") << "A" << true;
        QTest::newRow("bare space") << "Space" << true;
        QTest::newRow("shift letter") << "Shift+A" << true;
        QTest::newRow("ctrl letter") << "Ctrl+A" << false;
        QTest::newRow("function key") << "F5" << false;
        QTest::newRow("default toggle") << "CTRL+SHIFT+SPACE" << false;
        QTest::newRow("empty") << "" << false;
    }
    void codingConflict()
    {
        QFETCH(QString, sequence);
        QFETCH(bool, refused);
        QCOMPARE(!OVShortcutEdit::codingConflict(QKeySequence(sequence, QKeySequence::PortableText)).isEmpty(), refused);
    }

    void recordsWhatIsPressed()
    {
        OVShortcutEdit edit;
        QTest::keyClick(&edit, Qt::Key_K, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(edit.keySequence(), QKeySequence("Ctrl+Shift+K"));
        QTest::keyClick(&edit, Qt::Key_Control, Qt::ControlModifier); // a lone modifier changes nothing
        QCOMPARE(edit.keySequence(), QKeySequence("Ctrl+Shift+K"));
    }

    void setClearResetAndApply()
    {
        OVKeyboardSettings settings;
        OVKeyboardSettingsWidget page(&settings, nullptr);
        auto *edit = page.findChild<OVShortcutEdit *>("le_shortcut");
        auto *set = page.findChild<QPushButton *>("pb_set");

        select(page, OVActionRegistry::OpenVideo);
        QTest::keyClick(edit, Qt::Key_O, Qt::ControlModifier);
        QVERIFY(set->isEnabled());
        set->click();
        QCOMPARE(page.pendingShortcut(OVActionRegistry::OpenVideo), QString("Ctrl+O"));

        select(page, OVActionRegistry::TogglePlayback);
        QTest::keyClick(edit, Qt::Key_P); // bare: refused
        QVERIFY(!set->isEnabled());
        QVERIFY(!page.lastMessage().isEmpty());
        set->click();
        QCOMPARE(QKeySequence(page.pendingShortcut(OVActionRegistry::TogglePlayback)), QKeySequence("Ctrl+Shift+Space"));

        select(page, OVActionRegistry::Undo);
        page.findChild<QPushButton *>("pb_clear")->click();
        QCOMPARE(page.pendingShortcut(OVActionRegistry::Undo), QString());

        page.apply();
        QCOMPARE(settings.shortcuts().keys(), QList<int>({ OVActionRegistry::OpenVideo, OVActionRegistry::Undo }));
        QCOMPARE(settings.shortcut(OVActionRegistry::OpenVideo), QString("Ctrl+O"));
        QCOMPARE(settings.shortcut(OVActionRegistry::Undo), QString());

        page.findChild<QPushButton *>("pb_reset")->click();
        page.apply();
        QVERIFY(settings.shortcuts().isEmpty());
    }

    // Only what does something is offered; what is stored for the rest stays stored.
    void listsOnlyLiveActions()
    {
        OVKeyboardSettings settings;
        settings.setShortcut(OVActionRegistry::Waveforms, "Ctrl+W");
        OVActionRegistry registry;
        connect(registry.action(OVActionRegistry::Undo), &QAction::triggered, this, [] {});
        registry.action(OVActionRegistry::Redo); // made, never handled
        registry.action(OVActionRegistry::Waveforms);
        OVKeyboardSettingsWidget page(&settings, &registry);
        auto *tree = page.findChild<QTreeWidget *>("tw_actions");
        QCOMPARE(tree->topLevelItemCount(), 1);
        QCOMPARE(tree->topLevelItem(0)->data(0, Qt::UserRole + 1).toInt(), int(OVActionRegistry::Undo));
        select(page, OVActionRegistry::Undo);
        page.findChild<QPushButton *>("pb_clear")->click();
        page.apply();
        QCOMPARE(settings.shortcut(OVActionRegistry::Waveforms), QString("Ctrl+W"));
        QCOMPARE(settings.shortcut(OVActionRegistry::Undo), QString());
    }
};

QTEST_MAIN(TestOVKeyboardSettingsWidget)
#include "tst_ovkeyboardsettingswidget.moc"
