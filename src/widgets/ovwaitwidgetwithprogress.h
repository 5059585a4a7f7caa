#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

// A dark pane laid over its parent while long work runs: what is being done, how far it got and
// a button to stop it. It follows the parent's size and swallows input meant for the widgets
// beneath, so nothing can be changed under the work's feet.
class OVWaitWidgetWithProgress : public QWidget
{
    Q_OBJECT

public:
    explicit OVWaitWidgetWithProgress(QWidget *parent);

    bool isWaiting() const { return m_waiting; }
    QString text() const;
    bool canCancel() const;

public Q_SLOTS:
    // Shows the pane over the parent with `text`, the bar busy until setProgress() gives a range.
    void startWait(const QString &text);
    void setText(const QString &text);
    void endWait();
    // min == max makes the bar busy.
    void setProgress(int val, int min, int max);
    void setCancelEnabled(bool enabled);

Q_SIGNALS:
    void waitStarted();
    void waitFinished();
    void cancelClicked();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void onCancel();

    QLabel *m_label = nullptr;
    QProgressBar *m_bar = nullptr;
    QPushButton *m_cancel = nullptr;
    bool m_waiting = false;
};
