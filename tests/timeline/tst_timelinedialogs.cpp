#include "project/segment.h"
#include "timeline/ovlabelpalette.h"
#include "timeline/ovquickkeyedit.h"
#include "timeline/ovtllabeldialog.h"
#include "timeline/ovtlsegmentdialog.h"

#include <QLineEdit>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

// The editors opened from the timeline: what they read back is what the user set.
class TstTimelineDialogs : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void labelDialog();
    void segmentDialog_data();
    void segmentDialog();
    void quickKeyEdit_data();
    void quickKeyEdit();
};

void TstTimelineDialogs::labelDialog()
{
    OVTLLabelDialog dialog;
    dialog.setValues(QStringLiteral("Gaze"), QLatin1Char('g'), Qt::blue, QStringLiteral("d"));
    QCOMPARE(dialog.key(), QChar(QLatin1Char('G')));
    QCOMPARE(dialog.color(), QColor(Qt::blue)); // not in the palette: kept until one is picked

    // Picking the fifth swatch.
    const QList<QToolButton *> swatches = dialog.findChildren<QToolButton *>();
    QVERIFY(swatches.size() > 4);
    swatches.at(4)->click();
    QCOMPARE(dialog.color(), OVLabelPalette::colors().at(4));
    QLineEdit *key = dialog.findChildren<QLineEdit *>().at(1);
    key->clear();
    QTest::keyClicks(key, QStringLiteral("q"));
    QCOMPARE(dialog.key(), QChar(QLatin1Char('Q')));
    key->clear();
    QVERIFY(dialog.key().isNull());

    // A key another label has keeps the dialog open with the reason, until it is changed.
    dialog.setKeyCheck([](QChar k) { return k == QLatin1Char('B') ? QStringLiteral("B is taken") : QString(); });
    dialog.show();
    QTest::keyClicks(key, QStringLiteral("b"));
    dialog.accept();
    QVERIFY(dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QCOMPARE(dialog.keyProblem(), QStringLiteral("B is taken"));
    key->clear();
    QTest::keyClicks(key, QStringLiteral("e"));
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
}

void TstTimelineDialogs::segmentDialog_data()
{
    QTest::addColumn<QString>("start");
    QTest::addColumn<QString>("end");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<double>("startValue");
    QTest::addColumn<double>("endValue");
    QTest::newRow("full times") << "00:01:02.500" << "00:01:10.000" << true << 62.5 << 70.0;
    QTest::newRow("zero length") << "00:00:05.000" << "00:00:05.000" << true << 5.0 << 5.0;
    QTest::newRow("end before start") << "00:00:05.000" << "00:00:04.000" << false << 5.0 << 4.0;
    QTest::newRow("not a time") << "soon" << "00:00:04.000" << false << -1.0 << 4.0;
}

void TstTimelineDialogs::segmentDialog()
{
    QFETCH(QString, start);
    QFETCH(QString, end);
    QFETCH(bool, valid);
    QFETCH(double, startValue);
    QFETCH(double, endValue);
    OVTLSegmentDialog dialog;
    dialog.setValues(12.0, OVProject::Segment::OpenEnd, QString(), QString()); // an open end is kept
    QVERIFY(dialog.isValid());
    QCOMPARE(dialog.end(), OVProject::Segment::OpenEnd);
    dialog.setValues(1.0, 2.0, QStringLiteral("alice"), QStringLiteral("note"));
    QVERIFY(dialog.isValid());
    auto edits = dialog.findChildren<QLineEdit *>();
    edits.at(0)->setText(start);
    edits.at(1)->setText(end);
    QCOMPARE(dialog.isValid(), valid);
    QCOMPARE(dialog.start(), startValue);
    QCOMPARE(dialog.end(), endValue);
    QCOMPARE(dialog.description(), QStringLiteral("note"));
}

void TstTimelineDialogs::quickKeyEdit_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("emitted"); // -1: nothing, 0: cleared, else the character
    QTest::newRow("letter") << int(Qt::Key_K) << "k" << int('K');
    QTest::newRow("digit") << int(Qt::Key_7) << "7" << int('7');
    QTest::newRow("escape cancels") << int(Qt::Key_Escape) << "" << -1;
    QTest::newRow("delete clears") << int(Qt::Key_Delete) << "" << 0;
    QTest::newRow("space is no key") << int(Qt::Key_Space) << " " << -1;
    QTest::newRow("a key another label has") << int(Qt::Key_B) << "b" << -1;
}

void TstTimelineDialogs::quickKeyEdit()
{
    QFETCH(int, key);
    QFETCH(QString, text);
    QFETCH(int, emitted);
    OVQuickKeyEdit edit;
    edit.setAttribute(Qt::WA_DeleteOnClose, false);
    edit.setKeyCheck([](QChar k) { return k == QLatin1Char('B') ? QStringLiteral("taken") : QString(); });
    QSignalSpy spy(&edit, &OVQuickKeyEdit::keyChosen);
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, text);
    QApplication::sendEvent(&edit, &press);
    if (emitted < 0) {
        QVERIFY(spy.isEmpty());
    } else {
        QCOMPARE(spy.size(), 1);
        QCOMPARE(spy.at(0).at(0).value<QChar>(), emitted == 0 ? QChar() : QChar(char16_t(emitted)));
    }
}

QTEST_MAIN(TstTimelineDialogs)
#include "tst_timelinedialogs.moc"
