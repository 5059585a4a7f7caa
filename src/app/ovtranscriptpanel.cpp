#include "app/ovtranscriptpanel.h"

#include "app/kvmainwindow.h"
#include "app/ovactionregistry.h"
#include "app/ovplayercanvas.h"
#include "app/ovplayerpanel.h"
#include "log/ovtimeformat.h"
#include "media/ovvideoplayer.h"
#include "project/project.h"
#include "project/state.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"
#include "settings/ovkeyboardsettings.h"
#include "settings/ovlabelingsettings.h"
#include "settings/ovoverlaysettings.h"
#include "settings/ovsettings.h"
#include "transcript/ovtranscriber.h"
#include "project/ovtablewriter.h"
#include "transcript/ovtranscriptclipboard.h"
#include "transcript/ovtranscriptcsv.h"
#include "transcript/ovtranscripthistory.h"
#include "transcript/ovtranscriptmodel.h"
#include "transcript/ovtranscriptview.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDockWidget>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QStatusBar>
#include <QVBoxLayout>

using namespace OVProject;
using R = OVActionRegistry;

namespace {
constexpr int ConversationAnalysisProject = 1;
constexpr int MessageMs = 6000;

QMenu *menuTitled(QMenuBar *bar, const QString &title)
{
    for (QAction *a : bar->actions()) {
        if (a->menu() && a->text() == title)
            return a->menu();
    }
    return nullptr;
}
} // namespace

OVTranscriptPanel::OVTranscriptPanel(KVMainWindow *window)
    : QWidget(nullptr), m_window(window), m_requests(new OVTranscriptHistory(this)),
      m_transcriber(new OVTranscriber(m_requests, this))
{
    setObjectName(QStringLiteral("transcriptPanel"));
    m_view = new OVTranscriptView(this);
    m_view->setRequests(m_requests);

    m_filter = new QComboBox(this);
    m_filter->setObjectName(QStringLiteral("cb_speakerFilter"));
    m_speaker = new QComboBox(this);
    m_speaker->setObjectName(QStringLiteral("cb_speaker"));
    m_speaker->setEditable(true);
    m_speaker->setInsertPolicy(QComboBox::NoInsert);
    m_speaker->setMinimumContentsLength(12);
    m_speaker->setToolTip(tr("Speaker of the next utterance (Tab while typing picks the next one)"));
    m_draft = new QLineEdit(this);
    m_draft->setObjectName(QStringLiteral("le_draft"));
    m_draft->installEventFilter(this);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("lb_transcribing"));
    m_status->setWordWrap(true);

    auto *top = new QHBoxLayout;
    top->addWidget(new QLabel(tr("Show:"), this));
    top->addWidget(m_filter, 1);
    top->addSpacing(12);
    top->addWidget(new QLabel(tr("Speaker:"), this));
    top->addWidget(m_speaker, 1);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    layout->addLayout(top);
    layout->addWidget(m_view, 1);
    layout->addWidget(m_status);
    layout->addWidget(m_draft);

    m_dock = new QDockWidget(tr("Transcript"), window);
    m_dock->setObjectName(QStringLiteral("dw_transcript"));
    // The main window's black shows through a dock that paints nothing, and the labels and the
    // dock's title, drawn in the window text colour, vanish into it.
    m_dock->setAutoFillBackground(true);
    m_dock->setWidget(this);
    window->addDockWidget(Qt::RightDockWidgetArea, m_dock);
    m_dock->hide();

    OVActionRegistry *actions = window->actionRegistry();
    QAction *show = actions->action(R::Transcript);
    show->setCheckable(true);
    connect(show, &QAction::toggled, m_dock, &QWidget::setVisible);
    connect(m_dock, &QDockWidget::visibilityChanged, show, [this, show](bool visible) {
        if (!m_window->isMinimized())
            show->setChecked(visible);
    });
    connect(actions->action(R::EnableTranscribing), &QAction::toggled, this, &OVTranscriptPanel::onTranscribingToggled);
    connect(actions->action(R::StartNewUtterance), &QAction::triggered, this, &OVTranscriptPanel::startNewUtterance);
    connect(actions->action(R::FinishUtterance), &QAction::triggered, this, &OVTranscriptPanel::finishUtterance);
    connect(actions->action(R::EnableLooping), &QAction::toggled, this, &OVTranscriptPanel::setLooping);
    connect(actions->action(R::AdvanceLoopForward), &QAction::triggered, this, [this] { advanceLoop(1); });
    connect(actions->action(R::AdvanceLoopBackward), &QAction::triggered, this, [this] { advanceLoop(-1); });
    connect(actions->action(R::ShowTranscriptsOnVideo), &QAction::toggled, this, &OVTranscriptPanel::updateOverlay);
    connect(actions->action(R::CopyToClipboardCsv), &QAction::triggered, this, &OVTranscriptPanel::copyCsv);
    connect(actions->action(R::CopyToClipboardPlainText), &QAction::triggered, this, &OVTranscriptPanel::copyPlainText);
    connect(actions->action(R::CopyToClipboardHtml), &QAction::triggered, this, &OVTranscriptPanel::copyHtml);

    QMenuBar *bar = window->menuBar();
    if (QMenu *viewMenu = menuTitled(bar, tr("&View")))
        viewMenu->addAction(show);
    QMenu *menu = bar->findChild<QMenu *>(QStringLiteral("menuTranscript"));
    if (!menu) {
        menu = new QMenu(tr("T&ranscript"), bar);
        menu->setObjectName(QStringLiteral("menuTranscript"));
        QMenu *before = menuTitled(bar, tr("&Analysis"));
        bar->insertMenu(before ? before->menuAction() : nullptr, menu);
    }
    for (int id : { R::EnableTranscribing, R::StartNewUtterance, R::FinishUtterance })
        menu->addAction(actions->action(id));
    menu->addSeparator();
    for (int id : { R::EnableLooping, R::AdvanceLoopForward, R::AdvanceLoopBackward })
        menu->addAction(actions->action(id));
    menu->addSeparator();
    menu->addAction(actions->action(R::ShowTranscriptsOnVideo));
    for (int id : { R::CopyToClipboardCsv, R::CopyToClipboardPlainText, R::CopyToClipboardHtml })
        menu->addAction(actions->action(id));

    connect(m_view, &OVTranscriptView::seekRequested, window, &KVMainWindow::onSeekRequested);
    OVTranscriptModel *model = m_view->transcriptModel();
    connect(model, &OVTranscriptModel::highlightChanged, this, &OVTranscriptPanel::onHighlightChanged);
    connect(model, &OVTranscriptModel::speakersChanged, this, &OVTranscriptPanel::updateSpeakerChoices);
    connect(m_filter, &QComboBox::activated, this, [this, model] {
        const QString speaker = m_filter->currentData().toString();
        model->setSpeakerFilter(speaker.isEmpty() ? QStringList() : QStringList{ speaker });
    });
    connect(m_speaker, &QComboBox::currentTextChanged, m_transcriber, &OVTranscriber::setSpeaker);
    connect(m_transcriber, &OVTranscriber::speakerChanged, this, [this](const QString &speaker) {
        if (m_speaker->currentText() != speaker)
            m_speaker->setCurrentText(speaker);
        updateStatus();
    });
    connect(m_transcriber, &OVTranscriber::writingChanged, this, &OVTranscriptPanel::onWritingChanged);
    connect(m_draft, &QLineEdit::textEdited, m_transcriber, &OVTranscriber::setDraft);
    connect(m_transcriber, &OVTranscriber::draftChanged, this, [this](const QString &text) {
        if (m_draft->text() != text)
            m_draft->setText(text);
    });
    for (auto signal : { &QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved })
        connect(model, signal, this, &OVTranscriptPanel::updateStatus);
    connect(model, &QAbstractItemModel::modelReset, this, &OVTranscriptPanel::updateStatus);
    connect(model, &OVTranscriptModel::speakersChanged, this, &OVTranscriptPanel::updateStatus);
    connect(m_draft, &QLineEdit::returnPressed, this, &OVTranscriptPanel::finishUtterance);

    if (OVSettings *settings = window->settings()) {
        connect(settings->keyboard(), &OVSettingsGroup::changed, this, &OVTranscriptPanel::updateUtteranceActions);
        connect(settings->keyboard(), &OVSettingsGroup::changed, this, &OVTranscriptPanel::updateStatus);
        connect(settings->overlay(), &OVSettingsGroup::changed, this, &OVTranscriptPanel::updateOverlay);
    }
    connect(window, &KVMainWindow::projectOpened, this, &OVTranscriptPanel::onProjectOpened);
    connect(window, &KVMainWindow::projectClosed, this, &OVTranscriptPanel::onProjectClosed);
    updateSpeakerChoices();
    m_speaker->setCurrentText(m_transcriber->speaker());
    onWritingChanged(false);
    if (window->project())
        onProjectOpened();
}

void OVTranscriptPanel::onProjectOpened()
{
    m_project = m_window->project();
    m_requests->setProject(m_project);
    m_view->setProject(m_project);
    m_transcriber->setProject(m_project);
    if (m_project)
        connect(m_project, &Project::projectTypeChanged, this, &OVTranscriptPanel::applyProjectType);
    if (m_project)
        connect(m_project->timelineGroup(), &TimelineGroup::utterancesChanged, this, &OVTranscriptPanel::updateOverlay);
    applyProjectType();
    updateOverlay();
}

void OVTranscriptPanel::onProjectClosed()
{
    m_window->actionRegistry()->action(R::EnableLooping)->setChecked(false);
    setLooping(false);
    m_project = nullptr;
    m_requests->setProject(nullptr);
    m_view->setProject(nullptr);
    m_transcriber->setProject(nullptr);
    updateOverlay();
}

void OVTranscriptPanel::applyProjectType()
{
    if (!m_project || m_project->projectType() != ConversationAnalysisProject)
        return;
    // The transcript is what this kind of project is about: it takes most of the window.
    m_dock->show();
    m_window->resizeDocks({ m_dock }, { m_window->width() * 55 / 100 }, Qt::Horizontal);
    m_view->setFocus();
}

void OVTranscriptPanel::showMessage(const QString &text)
{
    if (!text.isEmpty())
        m_window->statusBar()->showMessage(text, MessageMs);
}

void OVTranscriptPanel::onTranscribingToggled(bool on)
{
    // Turning transcribing off keeps what was typed: the open utterance is finished.
    if (!on && m_transcriber->isWriting())
        m_transcriber->finish();
    m_transcriber->setEnabled(on);
    if (on && !m_dock->isVisible())
        m_dock->show();
    updateStatus();
}

void OVTranscriptPanel::startNewUtterance()
{
    const OVTranscriber::Result r = m_transcriber->start();
    showMessage(r.message);
}

void OVTranscriptPanel::finishUtterance()
{
    if (!m_transcriber->isWriting())
        return;
    m_transcriber->setDraft(m_draft->text());
    const OVTranscriber::Result r = m_transcriber->finish();
    showMessage(r.message);
}

void OVTranscriptPanel::onWritingChanged(bool writing)
{
    m_draft->setEnabled(writing);
    if (writing) {
        m_draft->setText(m_transcriber->draft());
        m_draft->setFocus();
    } else {
        m_draft->clear();
    }
    updateStatus();
    updateUtteranceActions();
}

QString OVTranscriptPanel::shortcutText(int action) const
{
    const OVKeyboardSettings *keys = m_window->settings() ? m_window->settings()->keyboard() : nullptr;
    return QKeySequence(R::effectiveShortcut(action, keys), QKeySequence::PortableText).toString(QKeySequence::NativeText);
}

void OVTranscriptPanel::updateStatus()
{
    // What the table holds comes first: with a filter or hidden speakers the rows alone can
    // suggest that utterances went missing.
    const OVTranscriptModel *model = m_view->transcriptModel();
    const int shown = model->rowCount();
    const qsizetype all = model->timeline() ? model->timeline()->utterances().size() : 0;
    const qsizetype speakers = model->speakers().size();
    // The messages are not translated yet: English plurals here.
    const QString utterances = all == 1 ? tr("1 utterance") : tr("%1 utterances").arg(all);
    const QString speakerCount = speakers == 1 ? tr("1 speaker") : tr("%1 speakers").arg(speakers);
    QString counts;
    if (!m_project)
        counts = tr("No project is open.");
    else if (shown == all)
        counts = tr("%1, %2.").arg(utterances, speakerCount);
    else
        counts = tr("%1 of %2 shown, %3.").arg(shown).arg(utterances, speakerCount);

    QString state;
    const QString key = shortcutText(R::StartNewUtterance);
    const QString keyOrMenu = key.isEmpty() ? tr("Transcript > Start New Utterance") : key;
    if (const Utterance *u = m_transcriber->openUtterance()) {
        const QString finishKey = shortcutText(R::FinishUtterance);
        state = tr("Writing %1 since %2: type what is said, then %3 or Return finishes it.")
                    .arg(u->speaker(), OVTimeFormat::format(u->startTime()),
                         finishKey.isEmpty() ? tr("Finish Utterance") : finishKey);
    } else if (m_transcriber->isEnabled()) {
        state = tr("Next speaker: %1 (Tab while typing picks another). %2 starts an utterance at the playing position.")
                    .arg(m_transcriber->speaker(), keyOrMenu);
    } else if (m_project) {
        const QString enableKey = shortcutText(R::EnableTranscribing);
        state = enableKey.isEmpty() ? tr("Transcribing is off.") : tr("Transcribing is off: %1 turns it on.").arg(enableKey);
    }
    m_status->setText(state.isEmpty() ? counts : counts + QLatin1Char(' ') + state);
}

void OVTranscriptPanel::updateUtteranceActions()
{
    // Two enabled actions on one key cancel each other out; with a shared key only the one that
    // applies to the transcript's state listens to it.
    OVActionRegistry *actions = m_window->actionRegistry();
    const OVKeyboardSettings *keys = m_window->settings() ? m_window->settings()->keyboard() : nullptr;
    const QKeySequence startKey(R::effectiveShortcut(R::StartNewUtterance, keys), QKeySequence::PortableText);
    const QKeySequence finishKey(R::effectiveShortcut(R::FinishUtterance, keys), QKeySequence::PortableText);
    const bool shared = !startKey.isEmpty() && startKey == finishKey;
    const bool writing = m_transcriber->isWriting();
    actions->action(R::StartNewUtterance)->setEnabled(!writing || !shared);
    actions->action(R::FinishUtterance)->setEnabled(writing);
}

void OVTranscriptPanel::updateSpeakerChoices()
{
    const QStringList speakers = m_view->transcriptModel()->speakers();
    const QString filtered = m_filter->currentData().toString();
    m_filter->clear();
    m_filter->addItem(tr("All Speakers"), QString());
    for (const QString &s : speakers)
        m_filter->addItem(s, s);
    m_filter->setCurrentIndex(std::max(0, m_filter->findData(filtered)));
    const QString current = m_transcriber->speaker();
    m_speaker->blockSignals(true);
    m_speaker->clear();
    m_speaker->addItems(speakers);
    m_speaker->setCurrentText(current);
    m_speaker->blockSignals(false);
}

void OVTranscriptPanel::onHighlightChanged()
{
    if (m_project)
        m_project->state()->setUtterances(m_view->transcriptModel()->highlightedIds());
    updateOverlay();
}

void OVTranscriptPanel::updateOverlay()
{
    OVPlayerCanvas *canvas = m_window->playerPanel()->canvas();
    const OVOverlaySettings *overlay = m_window->settings() ? m_window->settings()->overlay() : nullptr;
    QStringList lines;
    if (m_project && m_window->actionRegistry()->action(R::ShowTranscriptsOnVideo)->isChecked()) {
        const OVTranscriptModel *model = m_view->transcriptModel();
        for (int row : model->highlightedRows()) {
            const Utterance *u = model->utterance(row);
            if (u && !u->text().isEmpty())
                lines.append(u->speaker().isEmpty() ? u->text() : QStringLiteral("%1: %2").arg(u->speaker(), u->text()));
        }
    }
    OVOverlaySettings defaults;
    const OVOverlaySettings *s = overlay ? overlay : &defaults;
    canvas->setOverlayText(lines.join(QLatin1Char('\n')), s->color(), s->font());
}

void OVTranscriptPanel::setLooping(bool on)
{
    OVVideoPlayer *player = m_window->playerPanel()->player();
    if (on && (!m_project || m_window->playerPanel()->mediaPath().isEmpty())) {
        showMessage(tr("Looping needs a recording to play."));
        m_window->actionRegistry()->action(R::EnableLooping)->setChecked(false);
        return;
    }
    m_looping = on;
    if (!on) {
        player->setLooping(false);
        if (m_project)
            m_project->state()->clearPlayRange();
        return;
    }
    const double duration = player->duration() > 0 ? player->duration() : m_project->videoLength();
    const QList<int> rows = m_view->selectedRows();
    if (const Utterance *u = rows.isEmpty() ? nullptr : m_view->transcriptModel()->utterance(rows.first())) {
        m_loop = OVTranscriptLoop::spanning(u->startTime(), u->endTime(), duration);
    } else {
        const double length = m_window->settings() ? m_window->settings()->labeling()->loopLength() : 5.0;
        m_loop = OVTranscriptLoop::around(m_project->state()->currentPos(), length, duration);
    }
    applyLoop();
}

void OVTranscriptPanel::advanceLoop(int steps)
{
    if (!m_looping) {
        showMessage(tr("Looping is off: turn on \"Enable Looping\" first."));
        return;
    }
    OVVideoPlayer *player = m_window->playerPanel()->player();
    const double duration = player->duration() > 0 ? player->duration() : m_project->videoLength();
    m_loop = OVTranscriptLoop::advanced(m_loop, steps, duration);
    applyLoop();
}

void OVTranscriptPanel::applyLoop()
{
    OVVideoPlayer *player = m_window->playerPanel()->player();
    player->setPlayRange(m_loop.start, m_loop.length());
    player->setLooping(true);
    // The timeline shows the band the player really loops over (it may end a little earlier).
    m_project->state()->setPlayRange(player->playRangeStart(), player->playRangeStart() + player->playRangeLength());
    showMessage(tr("Looping %1 - %2").arg(OVTimeFormat::format(m_loop.start, 1), OVTimeFormat::format(m_loop.end, 1)));
}

QList<const Utterance *> OVTranscriptPanel::utterancesToCopy() const
{
    // The selected rows, or the whole transcript as shown when nothing is selected.
    const OVTranscriptModel *model = m_view->transcriptModel();
    QList<int> rows = m_view->selectedRows();
    if (rows.isEmpty()) {
        for (int i = 0; i < model->rowCount(); ++i)
            rows.append(i);
    }
    QList<const Utterance *> out;
    for (int row : std::as_const(rows))
        out.append(model->utterance(row));
    return out;
}

void OVTranscriptPanel::copyCsv()
{
    OVTranscriptData data;
    for (const Utterance *u : utterancesToCopy())
        data.rows.append({ u->speaker(), u->startTime(), u->endTime(), u->text(), OVTranscriptData::Speech });
    // No byte order mark: pasted text is not a file.
    QApplication::clipboard()->setText(QString::fromUtf8(OVTableWriter::csv(OVTranscriptCsv::table(data), false)));
}

void OVTranscriptPanel::copyPlainText()
{
    QApplication::clipboard()->setText(OVTranscriptClipboard::plainText(utterancesToCopy()));
}

void OVTranscriptPanel::copyHtml()
{
    const QList<const Utterance *> utterances = utterancesToCopy();
    auto *mime = new QMimeData;
    mime->setHtml(OVTranscriptClipboard::htmlTable(utterances));
    // Programs that take no HTML get the lines.
    mime->setText(OVTranscriptClipboard::plainText(utterances));
    QApplication::clipboard()->setMimeData(mime);
}

bool OVTranscriptPanel::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_draft && event->type() == QEvent::KeyPress) {
        auto *key = static_cast<QKeyEvent *>(event);
        if (key->key() == Qt::Key_Tab && key->modifiers() == Qt::NoModifier) {
            // The speaker of the utterance being written changes with it.
            const QString speaker = m_transcriber->nextSpeaker();
            if (Utterance *u = m_transcriber->openUtterance())
                m_requests->editUtterance(u, u->startTime(), u->endTime(), speaker, u->text());
            updateStatus();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
