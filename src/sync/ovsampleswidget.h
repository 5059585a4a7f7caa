#pragma once

#include <QColor>
#include <QList>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <memory>

struct OVSamples;
class OVWaveformPyramid;
class OVWaveforms;

// A strip that draws one track as a waveform over time, for lining two recordings up by eye.
// x = (t - offset()) × pps(), with t in the track's own seconds: the offset is the track time at
// the left edge and may be negative (the track starts further right). Dragging the strip moves
// the offset, the wheel zooms around the pointer, and markers (sync points) are drawn on it, can
// be dragged along it and are hit by double- and right-clicks.
class OVSamplesWidget : public QWidget
{
    Q_OBJECT

public:
    struct Marker
    {
        QString id;
        double time = 0.0; // seconds of this track
        QColor color;
        QString text; // drawn beside the marker's flag
    };

    static constexpr double MinPps = 0.01;
    static constexpr double MaxPps = 22050.0 * 4; // four pixels a sample
    static constexpr int MarkerGrabPixels = 4;

    explicit OVSamplesWidget(QWidget *parent = nullptr);
    ~OVSamplesWidget() override;

    // The track to draw (not owned; it must stay unchanged while shown). Its pyramid is built on
    // a thread; the strip says so meanwhile. Null clears the strip.
    void setSamples(const OVSamples *samples);
    const OVSamples *samples() const { return m_samples; }
    // True once the track can be drawn.
    bool isReady() const { return m_waveform != nullptr; }

    double pps() const { return m_pps; }
    // Zoom in pixels per second, kept within [MinPps, MaxPps]. The setters stay silent: the
    // signals announce what the user did, so that strips kept in step do not echo each other.
    void setPps(double pps);
    double offset() const { return m_offset; }
    // Track time at the left edge.
    void setOffset(double seconds);
    // Zooms to `pps` keeping the time under x where it is, as the wheel does (and announces it).
    void zoomAt(double pps, double x);
    // Whether the mouse may move the strip (the primary usually stays, the secondary moves).
    void setDraggable(bool on) { m_draggable = on; }
    bool isDraggable() const { return m_draggable; }

    double timeAt(double x) const { return m_offset + x / m_pps; }
    double xAt(double time) const { return (time - m_offset) * m_pps; }

    void setColor(const QColor &color);
    void setTitle(const QString &title);
    // A playing position to draw (track seconds), NaN for none.
    void setCursorTime(double seconds);
    double cursorTime() const { return m_cursor; }

    void addMarker(const Marker &marker);
    bool removeMarker(const QString &id);
    void clearMarkers();
    bool setMarkerTime(const QString &id, double seconds);
    const QList<Marker> &markers() const { return m_markers; }
    // The marker within MarkerGrabPixels of x (the nearest), empty when none.
    QString markerAt(double x) const;

Q_SIGNALS:
    void rightClicked(double ts, QString id);
    void doubleClicked(double ts, QString id);
    // The user dragged, scrolled or zoomed the strip to a new offset.
    void offsetChanged();
    // The user zoomed.
    void ppsChanged();
    // The user dragged a marker; emitted on release.
    void markerMoved(QString id, double ts);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;

private:
    void onWaveformsFinished();
    void applyPps(double pps, bool byUser);
    void applyOffset(double seconds, bool byUser);

    const OVSamples *m_samples = nullptr;
    QPointer<OVWaveforms> m_builder;
    std::shared_ptr<const OVWaveformPyramid> m_waveform;
    double m_pps = 100.0;
    double m_offset = 0.0;
    double m_cursor;
    bool m_draggable = true;
    QColor m_color;
    QString m_title;
    QList<Marker> m_markers;

    enum class Drag { None, Strip, Marker };
    Drag m_drag = Drag::None;
    double m_pressX = 0.0;
    double m_pressOffset = 0.0;
    QString m_dragMarker;
};
