#pragma once

#include "sync/ovsamples.h"
#include "sync/ovsync.h"
#include "sync/ovsyncmap.h"

#include <QDialog>
#include <QFutureWatcher>
#include <QList>

#include <atomic>

class OVSamplesWidget;
class OVSyncManualRefineDlg;
class OVWaitWidgetWithProgress;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;

// Lines the secondary recording up with the primary: the two waveforms one above the other,
// markers on both that say "this sound here is that sound there", found by Auto Sync or placed
// and tuned by hand, and the way the secondary is mapped onto the primary's time for the merge.
class OVManualSyncDlg : public QDialog
{
    Q_OBJECT

public:
    enum AlignMode {
        AlignUsingMarkers = 0, // straight between markers, the fitted clock drift beyond them
        AlignOneToOne = 1, // shifted by the secondary strip's offset, the clocks taken as equal
        DontAlign = 2 // as recorded: both start together
    };
    enum Track { Primary = 0, Secondary = 1 };

    // A marker is a pair: the same sound at `primary` seconds in the primary and at `secondary`
    // seconds in the secondary.
    struct Marker
    {
        QString id;
        double primary = 0.0;
        double secondary = 0.0;
        double coefficient = 0.0; // correlation at the pair; 0 when unknown
        double offset() const { return primary - secondary; }
    };

    // More markers make the strips unreadable and the drift fit no better.
    static constexpr int MaxMarkers = 100;
    // Markers on one track closer than this could not be told apart on the strip.
    static constexpr double MinMarkerSpacing = 0.5;

    explicit OVManualSyncDlg(QWidget *parent = nullptr);
    ~OVManualSyncDlg() override;

    // Decodes the chosen audio streams of both recordings (with the loader's progress dialog);
    // false when that failed or was cancelled, the reason having been shown.
    bool loadSamples(const QString &primaryMedia, int primaryStream, const QString &secondaryMedia,
                     int secondaryStream);
    // Takes tracks already in memory (both at one sample rate).
    void setSamples(OVSamples primary, OVSamples secondary);
    const OVSamples &primarySamples() const { return m_primary; }
    const OVSamples &secondarySamples() const { return m_secondary; }

    QList<Marker> markers() const { return m_markers; }
    // Adds a marker pair at `seconds` on `track`; the other track's half is placed through the
    // current offset between the strips. False, after telling the user why, when it does not fit.
    bool addMarker(Track track, double seconds);
    bool removeMarker(const QString &id);
    void removeAllMarkers();
    // Moves the secondary half of a marker so that its offset is `offset` seconds.
    bool setMarkerOffset(const QString &id, double offset, double coefficient);

    // Searches around the marker for the offset where both tracks match best and moves its
    // secondary half there; false, with the marker left alone, when they do not match there.
    bool autoRefine(const QString &id);

    AlignMode alignMode() const;
    void setAlignMode(AlignMode mode);
    // Primary time of the secondary's first sample, as the strips show it.
    double secondaryOffset() const { return m_offset; }
    void setSecondaryOffset(double seconds);
    bool isSynchronized() const { return m_synchronized; }
    QString hint() const;
    OVSync::Fit fit() const { return m_fit; }

    // How the secondary is laid on the primary's time in the current mode.
    OVSyncMap syncMap() const;
    // The secondary as heard along the primary, as long as the primary: what the merge adds.
    OVSamples alignedSecondary() const;

    // The search, run on a pool thread; returns the sync points found (none when the tracks share
    // no sound) or what it had when cancelled.
    QList<OVSync::SyncInfo> autoSync();

public Q_SLOTS:
    void onAutoSync();
    void onAutoSyncConcFinished();
    void onWaitCancelClicked();
    // Shifts the secondary so that its markers coincide with the primary's.
    void onAlignMarkers();
    void onAutoRefineRequested();
    void onRefineDialogChanged();
    void accept() override;
    void reject() override;

Q_SIGNALS:
    void startWait(QString text);
    void endWait();
    void setProgress(int val, int min, int max);
    // The search's stage, from its thread.
    void stageChanged(QString text);
    // The search has ended and its markers (if any) are in place.
    void autoSyncFinished(bool found);
    void markersChanged();

protected:
    // The questions the dialog asks; tests answer them by overriding.
    virtual bool confirm(const QString &question);
    virtual void inform(const QString &title, const QString &message);
    void closeEvent(QCloseEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    class SearchProgress;

    void setHint(const QString &text, bool synchronized);
    void markersEdited();
    // What the current alignment mode will do with the secondary.
    void updateModeHint();
    void createStrips();
    void setStripSamples();
    // Puts the markers and the offset on the strips.
    void updateStrips();
    // The primary time in the middle of the strips' view; `fallback` when there is no view.
    double viewCentre(double fallback) const;
    void updateCorrelation();
    void openRefineDialog(const QString &id);
    void onStripRightClicked(Track track, double ts, const QString &id);
    void onStripDoubleClicked(Track track, double ts, const QString &id);
    void onSecondaryDragged();
    void followPrimary();
    int markerIndex(const QString &id) const;
    QString newMarkerId();
    QList<OVSync::SyncInfo> markerPoints() const;
    // Local search around one marker: the best offset within a fraction of a second, then to a
    // fraction of a sample. False when the tracks do not match there.
    bool refineMarker(Marker &marker) const;

    OVSamples m_primary;
    OVSamples m_secondary;
    QList<Marker> m_markers;
    int m_nextMarker = 1;
    double m_offset = 0.0;
    bool m_synchronized = false;
    bool m_fitted = false;
    // Closing was asked for during the search: done once the search has stopped.
    bool m_rejectPending = false;
    OVSync::Fit m_fit;

    std::atomic<bool> m_cancel { false };
    // Written by the search thread, read once its watcher has finished.
    OVSync::Fit m_searchFit;
    bool m_searchCanceled = false;
    QFutureWatcher<QList<OVSync::SyncInfo>> m_watcher;

    class QVBoxLayout *m_stripLayout = nullptr;
    OVSamplesWidget *m_primaryStrip = nullptr;
    OVSamplesWidget *m_secondaryStrip = nullptr;
    QLabel *m_hint = nullptr;
    QLabel *m_correlation = nullptr;
    QPushButton *m_autoSync = nullptr;
    QPushButton *m_align = nullptr;
    QComboBox *m_alignMode = nullptr;
    QCheckBox *m_alignSynced = nullptr;
    OVWaitWidgetWithProgress *m_wait = nullptr;
    OVSyncManualRefineDlg *m_refine = nullptr;
    QString m_refineId;
};
