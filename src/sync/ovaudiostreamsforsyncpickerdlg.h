#pragma once

#include "media/ovmediainfo.h"

#include <QDialog>

class QComboBox;
class QLabel;

// Which audio stream of each recording the sync listens to, and whether the synchronised sound
// joins the primary as a further stream or takes the place of one of its streams.
class OVAudioStreamsForSyncPickerDlg : public QDialog
{
    Q_OBJECT

public:
    OVAudioStreamsForSyncPickerDlg(const OVMediaInfo &primary, const OVMediaInfo &secondary, QWidget *parent = nullptr);

    // The nth audio stream of each file (0 is the first); -1 when the file has none.
    int primaryStream() const;
    int secondaryStream() const;
    // The audio stream of the primary that the new one replaces, -1 to add it after the others;
    // with the primary's audio stream count, as the merge takes them (both -1 when adding).
    int replaceIndex() const;
    int streamCount() const;
    // False when the secondary has no sound to sync with; the dialog says why and offers no OK.
    bool isUsable() const { return m_usable; }

    void setPrimaryStream(int nth);
    void setSecondaryStream(int nth);
    void setReplaceIndex(int nth);

    // "(Audio #2) aac, stereo, 48000 Hz": numbered from 1, as the user counts.
    static QString streamLabel(int nth, const OVMediaInfo::Stream &stream);
    static QList<OVMediaInfo::Stream> audioStreams(const OVMediaInfo &info);

private:
    int m_primaryCount = 0;
    bool m_usable = true;
    QComboBox *m_primary = nullptr;
    QComboBox *m_secondary = nullptr;
    QComboBox *m_target = nullptr;
};
