#pragma once

#include "timeline/ovtimemapping.h"

#include <QList>
#include <QString>
#include <QWidget>

#include <memory>

class OVWaveformPyramid;

// The strip under the label rows that shows the waveform of each audio stream of the project's
// recording, one band per stream, on the rows' time axis: the timeline hands it the mapping it
// paints its rows with, so a sound lines up with the segment coded on it at every zoom. Until
// tracks are there it says why it is empty; it draws the timeline cursor so the line runs
// through both parts.
class OVWaveformArea : public QWidget
{
    Q_OBJECT
public:
    struct Track
    {
        QString name;
        std::shared_ptr<const OVWaveformPyramid> waveform;
    };

    explicit OVWaveformArea(QWidget *parent = nullptr);
    ~OVWaveformArea() override;

    // x of the cursor in this widget's coordinates, or a negative value for none.
    void setCursorX(int x);
    // The timeline's mapping, moved into this widget's coordinates.
    void setMapping(const OVTimeMapping &mapping);
    OVTimeMapping mapping() const { return m_mapping; }

    void setTracks(const QList<Track> &tracks);
    void addTrack(const Track &track);
    void clearTracks();
    int trackCount() const { return int(m_tracks.size()); }

    void setLoading(bool loading);
    bool isLoading() const { return m_loading; }
    // Share of the loading done, 0..1, drawn as a thin bar; negative when unknown.
    void setLoadingProgress(double share);
    // Shown instead of the tracks (a recording whose sound cannot be read), empty for none.
    void setProblem(const QString &problem);
    QString message() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QList<Track> m_tracks;
    OVTimeMapping m_mapping;
    int m_cursorX = -1;
    bool m_loading = false;
    double m_progress = -1.0;
    QString m_problem;
};
