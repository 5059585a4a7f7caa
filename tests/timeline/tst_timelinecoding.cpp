#include "timelinefixture.h"

#include "settings/ovlabelingsettings.h"
#include "timeline/ovtimelinecontrol.h"
#include "timeline/ovtimelinehistory.h"
#include "timeline/ovtimelinewidget.h"

#include <QApplication>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QUndoStack>
#include <QVBoxLayout>

using namespace OVProject;
using namespace TimelineFixture;

// Keyboard coding driven by real key events through the control.
class TstTimelineCoding : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void coding_data();
    void coding();
    void focusOutsideCodesNothing();
    void refusedPressSaysWhyAndKeepsTheKeyboard();
    void labelingModeFields();
    void zoomToFit();
    void barFitsANarrowPanel_data();
    void barFitsANarrowPanel();

private:
    // "pos:key" presses separated by ';'. A key may be prefixed with ^ (Control), + (Shift),
    // ! (Alt) or # (keypad); "lower" keys are sent as characters.
    static void press(QWidget *target, Project *project, const QString &script);
};

void TstTimelineCoding::press(QWidget *target, Project *project, const QString &script)
{
    for (const QString &step : script.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const QStringList parts = step.split(QLatin1Char(':'));
        project->state()->setCurrentPos(parts.at(0).toDouble());
        QString key = parts.at(1);
        static const Qt::KeyboardModifier prefixMods[] = { Qt::ControlModifier, Qt::ShiftModifier, Qt::AltModifier, Qt::KeypadModifier };
        Qt::KeyboardModifiers mods;
        for (qsizetype i = 0; key.size() > 1 && (i = QStringLiteral("^+!#").indexOf(key.at(0))) >= 0; key.remove(0, 1))
            mods |= prefixMods[i];
        // QTest maps a character to its key code and text, as a keyboard would ('a' -> Key_A, "a").
        QTest::keyClick(target, key.at(0).toLatin1(), mods);
    }
}

void TstTimelineCoding::coding_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<double>("leadOpen");
    QTest::addColumn<double>("leadClose");
    QTest::addColumn<double>("duration");
    QTest::addColumn<double>("videoLength");
    QTest::addColumn<QString>("setup"); // "1=A": label 1 (0-based) gets key A
    QTest::addColumn<QString>("presses");
    QTest::addColumn<QStringList>("expected");

    const double len = 600.0;
    QTest::newRow("double press opens then closes") << 2 << 2.0 << 1.0 << 10.0 << len << "" << "10:A;20:A" << QStringList{ "0:8-19" };
    QTest::newRow("open segment stays open") << 2 << 2.0 << 1.0 << 10.0 << len << "" << "10:A" << QStringList{ "0:8-open" };
    QTest::newRow("closing lead past the start swaps") << 2 << 0.0 << 5.0 << 10.0 << len << "" << "10:A;12:A" << QStringList{ "0:7-10" };
    QTest::newRow("opening lead clamps at 0") << 2 << 5.0 << 0.0 << 10.0 << len << "" << "3:A;9:A" << QStringList{ "0:0-9" };
    QTest::newRow("closing lead clamps at 0 and swaps") << 2 << 0.0 << 5.0 << 10.0 << len << "" << "1:A;2:A" << QStringList{ "0:0-1" };
    QTest::newRow("lower case press codes the label") << 2 << 0.0 << 0.0 << 10.0 << len << "" << "10:b;15:B" << QStringList{ "1:10-15" };
    QTest::newRow("lower case key of a label") << 1 << 0.0 << 0.0 << 3.0 << len << "2=c" << "10:C" << QStringList{ "2:10-13" };
    QTest::newRow("duplicate keys code the first label") << 1 << 0.0 << 0.0 << 3.0 << len << "1=A" << "10:A;20:A" << QStringList{ "0:10-13", "0:20-23" };
    QTest::newRow("two labels open at once") << 2 << 0.0 << 0.0 << 10.0 << len << "" << "10:A;11:B;12:A;13:B" << QStringList{ "0:10-12", "1:11-13" };
    QTest::newRow("single press makes fixed segments") << 1 << 1.0 << 9.0 << 4.0 << len << "" << "10:A;20:A;20.5:B" << QStringList{ "0:9-13", "0:19-23", "1:19.5-23.5" };
    QTest::newRow("single press inside an existing segment") << 1 << 1.0 << 0.0 << 4.0 << len << "" << "10:A;11:A;12.9:A" << QStringList{ "0:9-13" };
    QTest::newRow("double press inside a closed segment") << 2 << 0.0 << 0.0 << 4.0 << len << "" << "10:A;20:A;15:A;25:A;30:A" << QStringList{ "0:10-20", "0:25-30" };
    QTest::newRow("no video codes nothing") << 2 << 0.0 << 0.0 << 4.0 << 0.0 << "" << "10:A;20:A;30:B" << QStringList{};
    QTest::newRow("control, shift or alt codes nothing") << 2 << 0.0 << 0.0 << 4.0 << len << "" << "10:^A;11:+A;12:!A" << QStringList{};
    QTest::newRow("key without label codes nothing") << 2 << 0.0 << 0.0 << 4.0 << len << "" << "10:Z;11:5" << QStringList{};
    QTest::newRow("keypad digit codes") << 1 << 0.0 << 0.0 << 2.0 << len << "3=5" << "10:#5" << QStringList{ "3:10-12" };
}

void TstTimelineCoding::coding()
{
    QFETCH(int, mode);
    QFETCH(double, leadOpen);
    QFETCH(double, leadClose);
    QFETCH(double, duration);
    QFETCH(double, videoLength);
    QFETCH(QString, setup);
    QFETCH(QString, presses);
    QFETCH(QStringList, expected);

    OVLabelingSettings settings;
    settings.setLabelingMode(mode);
    settings.setLeadOpenTime(leadOpen);
    settings.setLeadCloseTime(leadClose);
    settings.setDefaultSegmentDuration(duration);

    Project project;
    Timeline *t = newProject(&project, videoLength);
    if (!setup.isEmpty())
        t->labels().at(setup.at(0).digitValue())->setKey(setup.at(2));

    OVTimelineControl control(&settings);
    control.setProject(&project);
    QVERIFY(showActive(&control));
    control.timelineWidget()->setLabelingEnabled(true);
    control.timelineWidget()->setFocus();
    QVERIFY(control.timelineWidget()->hasFocus());

    press(control.timelineWidget(), &project, presses);
    QCOMPARE(segmentList(t), expected);
    QVERIFY2(OVTimelineHistory::checkConsistency(&project).isEmpty(), qPrintable(OVTimelineHistory::checkConsistency(&project)));

    // In double-press mode the segment left open is the selection.
    if (mode == 2 && !expected.isEmpty() && expected.last().endsWith(QLatin1String("open"))) {
        const QList<Segment *> selected = control.timelineWidget()->selectedSegments();
        QCOMPARE(selected.size(), 1);
        QVERIFY(selected.first()->isOpen());
    }
    // Every press that changed the model is one undo step.
    int changes = 0;
    for (const QString &s : expected)
        changes += s.endsWith(QLatin1String("open")) ? 1 : (mode == 2 ? 2 : 1);
    QCOMPARE(control.undoStack()->count(), changes);
}

void TstTimelineCoding::focusOutsideCodesNothing()
{
    OVLabelingSettings settings;
    settings.setLabelingMode(OVLabelingSettings::SinglePressMode);
    Project project;
    Timeline *t = newProject(&project);

    QWidget window;
    auto *layout = new QVBoxLayout(&window);
    auto *edit = new QLineEdit(&window);
    auto *control = new OVTimelineControl(&settings, &window);
    layout->addWidget(edit);
    layout->addWidget(control);
    control->setProject(&project);
    control->timelineWidget()->setLabelingEnabled(true);
    window.resize(900, 400);
    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));

    project.state()->setCurrentPos(30.0);
    edit->setFocus();
    QVERIFY(edit->hasFocus());
    QTest::keyClick(edit, 'a');
    QCOMPARE(segmentList(t), QStringList());
    QCOMPARE(edit->text(), QStringLiteral("a")); // the key went on to the field

    // The control's own spin boxes keep their digits too.
    t->labels().at(0)->setKey(QLatin1Char('1'));
    QWidget *spin = control->findChild<QAbstractSpinBox *>();
    QVERIFY(spin);
    spin->setFocus();
    QTest::keyClick(spin, '1');
    QCOMPARE(segmentList(t), QStringList());

    // The same key with the focus on the timeline codes.
    control->timelineWidget()->setFocus();
    QTest::keyClick(control->timelineWidget(), '1');
    QCOMPARE(segmentList(t).size(), 1);

    // So does a key with the focus on the control itself.
    project.state()->setCurrentPos(300.0);
    control->setFocus();
    QVERIFY(control->hasFocus());
    QTest::keyClick(control, 'B');
    QCOMPARE(segmentList(t).size(), 2);
    QVERIFY(segmentList(t).last().startsWith(QLatin1String("1:")));
}

void TstTimelineCoding::refusedPressSaysWhyAndKeepsTheKeyboard()
{
    OVLabelingSettings settings;
    Project project;
    Timeline *t = newProject(&project);
    OVTimelineControl control(&settings);
    control.setProject(&project);
    QVERIFY(showActive(&control));
    OVTimelineWidget *w = control.timelineWidget();
    w->setFocus();
    QSignalSpy status(&control, &OVTimelineControl::statusMessage);

    // Labeling not yet enabled: the press says so and the label's row flashes.
    QTest::keyClick(w, 'c');
    QCOMPARE(segmentList(t), QStringList());
    QCOMPARE(status.size(), 1);
    QVERIFY(status.last().first().toString().contains(QLatin1String("labeling is disabled")));
    QCOMPARE(w->flashedLabel(), t->labels().at(2)->id());
    QTRY_VERIFY(w->flashedLabel().isEmpty());

    // A click on one of the panel's buttons leaves the keyboard with the timeline, so Space does
    // not press the button again.
    w->setLabelingEnabled(true);
    auto *add = control.findChild<QPushButton *>();
    QVERIFY(add && add->text() == QLatin1String("Add Label"));
    QTest::mouseClick(add, Qt::LeftButton);
    QCOMPARE(t->labels().size(), 5);
    QVERIFY(w->hasFocus());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QCOMPARE(t->labels().size(), 5);
}

void TstTimelineCoding::labelingModeFields()
{
    OVLabelingSettings settings;
    settings.setLabelingMode(OVLabelingSettings::DoublePressMode);
    OVTimelineControl control(&settings);
    auto *combo = control.findChild<QComboBox *>();
    QVERIFY(combo);
    QCOMPARE(combo->currentIndex(), 1);
    combo->setCurrentIndex(0);
    QCOMPARE(settings.labelingMode(), int(OVLabelingSettings::SinglePressMode));
    // A change made elsewhere (the settings page) shows on the control.
    settings.setLabelingMode(OVLabelingSettings::DoublePressMode);
    QCOMPARE(combo->currentIndex(), 1);

    const auto boxes = control.findChildren<QDoubleSpinBox *>();
    QCOMPARE(boxes.size(), 3);
    const QList<double (OVLabelingSettings::*)() const> getters{ &OVLabelingSettings::leadOpenTime, &OVLabelingSettings::leadCloseTime, &OVLabelingSettings::defaultSegmentDuration };
    for (int i = 0; i < 3; ++i) {
        boxes.at(i)->setValue(3.5 + i);
        QCOMPARE((settings.*getters.at(i))(), 3.5 + i);
    }
}

void TstTimelineCoding::zoomToFit()
{
    Project project;
    newProject(&project, 1200.0);
    OVTimelineControl control(nullptr);
    control.setProject(&project);
    control.resize(1000, 300);
    control.show();
    QVERIFY(QTest::qWaitForWindowExposed(&control));
    OVTimelineWidget *w = control.timelineWidget();
    w->setPps(7.0);
    w->setOffset(300.0);
    control.zoomTimelineToFit();
    QCOMPARE(w->offset(), 0.0);
    QVERIFY(qFuzzyCompare(w->pps(), w->timeAreaWidth() / 1200.0));
    // The whole video fits: its end is the right edge of the rows.
    QCOMPARE(w->mapping().xAt(1200.0), w->rowsRect().right() + 1);
}

QTEST_MAIN(TstTimelineCoding)
#include "tst_timelinecoding.moc"

void TstTimelineCoding::barFitsANarrowPanel_data()
{
    QTest::addColumn<int>("width");
    QTest::newRow("whole window") << 1400;
    // 1280 px less a segment list dock wide enough for its times.
    QTest::newRow("beside a dock") << 700;
}

// The panel's fields and buttons are all shown whole and apart however wide the panel is, and
// they do not hold it wider than what a dock beside it leaves.
void TstTimelineCoding::barFitsANarrowPanel()
{
    QFETCH(int, width);
    OVLabelingSettings settings;
    settings.setLabelingMode(OVLabelingSettings::SinglePressMode);
    OVTimelineControl control(&settings);
    QCOMPARE_LE(control.minimumSizeHint().width(), 700);
    control.resize(width, 400);
    control.show();
    QVERIFY(QTest::qWaitForWindowExposed(&control));
    QList<QRect> placed;
    for (QWidget *child : control.findChildren<QWidget *>()) {
        if (!child->isVisible() || !(qobject_cast<QAbstractButton *>(child) || qobject_cast<QComboBox *>(child)
                || qobject_cast<QAbstractSpinBox *>(child) || qobject_cast<QLabel *>(child)))
            continue;
        if (child->parentWidget() != control.findChild<QPushButton *>()->parentWidget())
            continue;
        const QRect r(child->mapTo(&control, QPoint(0, 0)), child->size());
        QVERIFY2(control.rect().contains(r), qPrintable(QStringLiteral("%1 lies outside the panel").arg(child->metaObject()->className())));
        QVERIFY2(r.width() >= child->minimumSizeHint().width(), qPrintable(QStringLiteral("%1 is squeezed").arg(child->metaObject()->className())));
        for (const QRect &other : std::as_const(placed))
            QVERIFY(!r.intersects(other));
        placed << r;
    }
    // Every field and button of the mode (the closing lead is hidden in single press mode).
    QCOMPARE(placed.size(), 11);
}
