#include "timelinefixture.h"

#include "project/project.h"
#include "timeline/ovtimelinewidget.h"
#include "timeline/ovwaveformarea.h"
#include "widgets/ovwaveformpyramid.h"

#include <QImage>
#include <QtTest>

#include <cmath>
#include <vector>

// The sound under the rows has to stay under the segments coded on it: whatever changes the
// rows' time axis (zoom, scroll by the bar or by "fit", a wider name column, a resize) moves the
// waveform with it.
class TestWaveformArea : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void followsRows_data();
    void followsRows();
};

void TestWaveformArea::followsRows_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<double>("value");
    QTest::newRow("zoom") << "pps" << 37.0;
    QTest::newRow("scroll") << "offset" << 3.25;
    QTest::newRow("scroll without relayout, as fit does") << "offset quiet" << 1.5;
    QTest::newRow("wider names") << "names" << 260.0;
    QTest::newRow("narrower window") << "width" << 700.0;
}

void TestWaveformArea::followsRows()
{
    QFETCH(QString, change);
    QFETCH(double, value);
    OVProject::Project project;
    TimelineFixture::newProject(&project, 60.0);
    OVTimelineWidget w;
    w.setProject(&project);
    w.resize(1000, 300);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    w.setPps(20.0);

    // Silence with one click at 12.0 s.
    const int rate = 8000;
    auto samples = std::make_shared<std::vector<qint16>>(size_t(60 * rate), 0);
    (*samples)[size_t(12 * rate)] = 32000;
    auto pyramid = std::make_shared<const OVWaveformPyramid>(samples->data(), qint64(samples->size()), rate, 16, false);
    OVWaveformArea *area = w.waveformArea();
    area->addTrack({ QStringLiteral("Audio 1"), pyramid });

    if (change == QLatin1String("pps"))
        w.setPps(value);
    else if (change == QLatin1String("offset"))
        w.setOffset(value);
    else if (change == QLatin1String("offset quiet"))
        w.setOffset(value, false);
    else if (change == QLatin1String("names"))
        w.setNameWidth(int(value));
    else
        w.resize(int(value), 300);
    QTest::qWait(50); // the relayout after a resize is queued

    const double expected = w.mapping().exactX(12.0) - area->mapTo(&w, QPoint(0, 0)).x();
    const QImage image = area->grab().toImage();
    QVERIFY(image.height() > 10);
    const int top = image.height() / 8; // well above the middle line: only the click reaches it
    int hit = -1;
    for (int x = 0; x < image.width() && hit < 0; ++x) {
        const QRgb c = image.pixel(x, top);
        if (qBlue(c) > qRed(c) + 50)
            hit = x;
    }
    QVERIFY2(std::abs(hit - expected) <= 1.0,
             qPrintable(QStringLiteral("click drawn at x %1, the rows have it at %2").arg(hit).arg(expected)));
}

QTEST_MAIN(TestWaveformArea)
#include "tst_waveformarea.moc"
