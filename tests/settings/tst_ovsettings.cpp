#include "settings/ovkeyboardsettings.h"
#include "settings/ovlabelingsettings.h"
#include "settings/ovoverlaysettings.h"
#include "settings/ovrecentprojects.h"
#include "settings/ovsettings.h"
#include "settings/ovuisettings.h"
#include "settings/ovuserinfosettings.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

namespace {
bool writeFile(const QString &path, const QByteArray &content)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(content) == content.size();
}
} // namespace

class TestOVSettings : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_path; // a settings file of its own for every test function and data row

private Q_SLOTS:
    void init()
    {
        static int n = 0;
        m_path = m_dir.filePath(QStringLiteral("settings%1.ini").arg(++n));
    }

    void actionShortcutsFromFile()
    {
        QVERIFY(writeFile(m_path, "[KeyboardSettings]\ndummytext=Dummy text\nAction3=Ctrl+K\nAction12=F5\nActionX=Z\n"));
        OVSettings s;
        QVERIFY(s.open(m_path));
        QCOMPARE(s.keyboard()->shortcuts().keys(), QList<int>({ 3, 12 }));
        QCOMPARE(s.keyboard()->shortcut(3), QString("Ctrl+K"));
        QCOMPARE(s.keyboard()->shortcut(12), QString("F5"));
    }

    void roundTripThroughFile()
    {
        {
            OVSettings s;
            QVERIFY(s.open(m_path));
            s.keyboard()->setShortcut(7, "Ctrl+Shift+Down");
            s.keyboard()->setShortcut(12, "");   // cleared by the user
            s.keyboard()->setShortcut(20, "F2");
            s.keyboard()->resetShortcut(20);     // back to its default: no entry
            s.labeling()->setLeadOpenTime(1.5);
            s.labeling()->setLabelingMode(1);
            s.overlay()->setColor(QColor(10, 20, 30, 40));
            s.recentProjects()->addProject("/a.kvpr");
            s.recentProjects()->addProject("/b.kvpr");
            s.recentProjects()->addProject("/a.kvpr");
            s.ui()->setWaveformsHeight(120);
            QVERIFY(s.saveNow());
        }
        QSettings raw(m_path, QSettings::IniFormat);
        QCOMPARE(raw.value("KeyboardSettings/Action7").toString(), QString("Ctrl+Shift+Down"));
        QVERIFY(!raw.contains("KeyboardSettings/Action20"));
        QCOMPARE(raw.value("LabelingSettings/leadOpenTime").toString(), QString("1.5"));

        OVSettings s;
        QVERIFY(s.open(m_path));
        QCOMPARE(s.keyboard()->shortcuts().size(), 2);
        QVERIFY(s.keyboard()->hasShortcut(12));
        QCOMPARE(s.keyboard()->shortcut(12), QString());
        QCOMPARE(s.labeling()->leadOpenTime(), 1.5);
        QVERIFY(!s.labeling()->isDoublePressMode());
        QCOMPARE(s.overlay()->color(), QColor(10, 20, 30, 40));
        QCOMPARE(s.recentProjects()->recentProjects(), QStringList({ "/a.kvpr", "/b.kvpr" }));
        QCOMPARE(s.ui()->waveformsHeight(), 120);
    }

    void changesAreSavedWithoutAnExplicitSave()
    {
        OVSettings s;
        QVERIFY(s.open(m_path));
        s.userInfo()->setUsername("coder1");
        QTRY_COMPARE(QSettings(m_path, QSettings::IniFormat).value("UserInfoSettings/username").toString(),
                     QString("coder1"));
    }

    void badValuesFallBackToDefaults_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("garbage numbers") << QByteArray("[LabelingSettings]\nleadOpenTime=abc\nleadCloseTime=nan\n"
                                                       "defaultSegmentDuration=\n[User%20Interface]\nwaveformsHeight=tall\n");
        QTest::newRow("binary junk") << QByteArray("\x00\xff[[[\n=\n\x01\x02", 10);
        QTest::newRow("half a section") << QByteArray("[LabelingSett");
        // A serialised variant whose inner length asks for gigabytes (found by fuzzing).
        QTest::newRow("hostile variant") << QByteArray::fromHex(
            "5b4c6162656c696e6753657474696e67735d0a6c6561644f70656e54696d653d320a6c656164436c6f736554696d653d320a6c6162ff6c696e674d6f64653d320a64656661756c74536567656e6d6d79746578743d44756d6d7920746578740a416374696f6e31323d4374726c2b500a5b4f7665726c617953657474696e67735d0a636f6c6f723d4056617269616e74285c305c305c305c7839325c78cfa3879999a387a1665c7866665c7866665c7866665c7866665c7866665c7866665c305c30290a5b526563656e7450726f6a656374735d0a726563656e7450726f6a656374733d2f612e6b7670722c202f622e6b76656374735d0a726563656e7450726f6a656374733d2f612e6b7670722c202f622e6b7670720a");
    }
    void badValuesFallBackToDefaults()
    {
        QFETCH(QByteArray, content);
        QVERIFY(writeFile(m_path, content));
        OVSettings s;
        s.open(m_path); // may or may not call the file damaged; it must not matter to the values
        QCOMPARE(s.labeling()->leadOpenTime(), 2.0);
        QCOMPARE(s.labeling()->leadCloseTime(), 2.0);
        QCOMPARE(s.labeling()->defaultSegmentDuration(), 10.0);
        QCOMPARE(s.ui()->waveformsHeight(), -1);
        s.labeling()->setLeadOpenTime(4);
        QVERIFY(s.saveNow());
        OVSettings again;
        QVERIFY(again.open(m_path));
        QCOMPARE(again.labeling()->leadOpenTime(), 4.0);
    }

    void variantLinesAreDroppedOthersKept()
    {
        QVERIFY(writeFile(m_path, "[OverlaySettings]\ncolor=@Variant(\\0\\0\\0\\x43\\x1\\xff\\xff)\n"
                                "font=\"Sans,12,-1,5,400,0,0,0,0,0,0,0,0,0,0,1\"\n[LabelingSettings]\nleadOpenTime=3.5\n"));
        OVSettings s;
        QVERIFY(s.open(m_path));
        QCOMPARE(s.overlay()->color(), QColor(255, 255, 255, 255));
        QCOMPARE(s.overlay()->font().family(), QString("Sans"));
        QCOMPARE(s.labeling()->leadOpenTime(), 3.5);
        s.overlay()->setColor(QColor(1, 2, 3, 4));
        QVERIFY(s.saveNow());
        QFile saved(m_path);
        QVERIFY(saved.open(QIODevice::ReadOnly));
        const QByteArray text = saved.readAll();
        QVERIFY(!text.contains("@Variant("));
        QVERIFY(text.contains("color=#04010203"));
    }

    void unreadableFileKeepsDefaultsAndIsNotLost()
    {
        if (geteuid() == 0)
            QSKIP("root reads every file");
        QVERIFY(writeFile(m_path, "[LabelingSettings]\nleadOpenTime=7\n"));
        QVERIFY(QFile::setPermissions(m_path, QFile::WriteOwner));
        OVSettings s;
        QVERIFY(!s.open(m_path));
        QCOMPARE(s.labeling()->leadOpenTime(), 2.0);
    }

    // Positions survive a save for the projects in the recent list, with any character in a path,
    // and never come back as garbage from a damaged entry.
    void lastPositions()
    {
        const QString odd = "/data/a|b, c.kvpr";
        {
            OVSettings s;
            QVERIFY(s.open(m_path));
            s.recentProjects()->addProject(odd);
            s.recentProjects()->addProject("/b.kvpr");
            s.recentProjects()->setLastPosition(odd, 12.5);
            s.recentProjects()->setLastPosition("/b.kvpr", 3.25);
            s.recentProjects()->setLastPosition("/not/recent.kvpr", 7.0);
            QVERIFY(s.saveNow());
        }
        OVSettings s;
        QVERIFY(s.open(m_path));
        OVRecentProjects *recent = s.recentProjects();
        QCOMPARE(recent->lastPosition(odd), 12.5);
        QCOMPARE(recent->lastPosition("/b.kvpr"), 3.25);
        QCOMPARE(recent->lastPosition("/not/recent.kvpr"), 0.0);
        // Out of the list, out of the positions at the next write.
        recent->removeProject(odd);
        recent->setLastPosition("/b.kvpr", 4.0);
        QCOMPARE(recent->value("lastPositions").toStringList(), QStringList({ "4.000|/b.kvpr" }));
        for (const char *damaged : { "x|/b.kvpr", "-5|/b.kvpr", "nan|/b.kvpr", "inf|/b.kvpr", "|/b.kvpr" }) {
            recent->setValue("lastPositions", QStringList({ QString::fromLatin1(damaged) }));
            QCOMPARE(recent->lastPosition("/b.kvpr"), 0.0);
        }
    }
};

QTEST_MAIN(TestOVSettings)
#include "tst_ovsettings.moc"
