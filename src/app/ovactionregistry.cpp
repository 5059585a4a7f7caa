#include "app/ovactionregistry.h"

#include "app/ovapplogging.h"
#include "settings/ovkeyboardsettings.h"

#include <QAction>
#include <QMenu>
#include <QWidget>

namespace {

// Knows whether anything handles it. A menu the action is added to connects to triggered() for
// its own bookkeeping; those connections are no handler.
class OVRegistryAction : public QAction
{
public:
    using QAction::QAction;
    bool hasHandler() const
    {
        int menus = 0;
        for (const QObject *o : associatedObjects()) {
            if (qobject_cast<const QMenu *>(o))
                ++menus;
        }
        return receivers(SIGNAL(triggered(bool))) - menus > 0 || receivers(SIGNAL(toggled(bool))) > 0;
    }
};

QList<OVActionInfo> makeTable()
{
    const QString tr = QStringLiteral("Transcription");
    const QString pb = QStringLiteral("Playback");
    QList<OVActionInfo> t = {
        { 23, tr, QStringLiteral("Enable Transcribing"), QStringLiteral("CTRL+SHIFT+E"), true },
        { 1, tr, QStringLiteral("Enable Looping"), QStringLiteral("CTRL+SHIFT+L"), true },
        { 2, tr, QStringLiteral("Advance Loop Forward"), QStringLiteral("CTRL+SHIFT+.") },
        { 3, tr, QStringLiteral("Advance Loop Backward"), QStringLiteral("CTRL+SHIFT+,") },
        // 4 and 5 share their default on purpose: the transcript picks the one that applies.
        { 4, tr, QStringLiteral("Start New Utterance"), QStringLiteral("CTRL+SHIFT+RETURN") },
        { 5, tr, QStringLiteral("Finish Utterance"), QStringLiteral("CTRL+SHIFT+RETURN") },
        { 19, tr, QStringLiteral("Show Transcripts On Video"), QStringLiteral("CTRL+SHIFT+U"), true },
        { 6, pb, QStringLiteral("Volume Up"), QStringLiteral("CTRL+SHIFT+UP") },
        { 7, pb, QStringLiteral("Volume Down"), QStringLiteral("CTRL+SHIFT+DOWN") },
        { 8, pb, QStringLiteral("Speed Up"), QStringLiteral("CTRL+SHIFT+]") },
        { 9, pb, QStringLiteral("Speed Down"), QStringLiteral("CTRL+SHIFT+[") },
        { 10, pb, QStringLiteral("Seek Forward"), QStringLiteral("CTRL+SHIFT+'") },
        { 11, pb, QStringLiteral("Seek Backward"), QStringLiteral("CTRL+SHIFT+;") },
        { 12, pb, QStringLiteral("Toggle Playback"), QStringLiteral("CTRL+SHIFT+SPACE") },
        { 20, QStringLiteral("Timeline"), QStringLiteral("Add Label"), QStringLiteral("CTRL+SHIFT+N") },
        { 24, QStringLiteral("File"), QStringLiteral("Settings"), QStringLiteral("CTRL+SHIFT+S") },
        { 61, QStringLiteral("Edit"), QStringLiteral("Undo"), QStringLiteral("CTRL+Z") },
        { 62, QStringLiteral("Edit"), QStringLiteral("Redo"), QStringLiteral("CTRL+SHIFT+Z") },
    };
    // Actions without a default shortcut. Their category follows the menu they live in.
    struct Plain { int id; const char *category; const char *title; };
    const Plain plain[] = {
        { 13, "File", "Open Video or Audio" }, { 14, "Timeline", "Import Labels/Timeline" },
        { 15, "Timeline", "Export Labels/Timeline" }, { 16, "Transcription", "Import Transcript" },
        { 17, "Transcription", "Export Transcript (CSV)" }, { 18, "File", "Close Application" },
        { 21, "Transcription", "Copy To Clipboard (CSV)" }, { 22, "Help", "About" },
        { 25, "Export", "Export Movie Builder Video" }, { 26, "Export", "Export Raw Data" },
        { 27, "Timeline", "Clear Timeline" }, { 28, "Transcription", "Clear Transcript" },
        { 30, "Help", "Report Problem" }, { 31, "Online", "Open Online Video" }, { 32, "Online", "Clear Cache" },
        { 33, "File", "Open Project" }, { 34, "File", "Save Project" }, { 35, "File", "New Project" },
        { 36, "File", "Close Project" }, { 37, "File", "Project Details" }, { 38, "File", "Save Project As..." },
        { 39, "Online", "Login" }, { 40, "Online", "Logout" }, { 41, "Online", "Publish Project" },
        { 42, "Online", "Edit Project's Users" }, { 43, "Online", "Browse Online Projects" },
        { 44, "Online", "Save Changes To Online Project" }, { 45, "Online", "Refresh Online Project" },
        { 46, "View", "Fullscreen" }, { 47, "View", "Transcript" }, { 48, "View", "Movie Builder" },
        { 49, "View", "Labels" }, { 50, "File", "Add Audio Track" }, { 51, "File", "Open Backup Folder" },
        { 52, "File", "Edit Audio Tracks" }, { 53, "Help", "Simulate Crash" }, { 54, "Online", "Pending Uploads" },
        { 55, "Online", "Passcode Manager" }, { 56, "Online", "Join Project Using Passcode" },
        { 57, "File", "Multi-Project Workshop" }, { 58, "File", "Remove Video or Audio" },
        { 59, "Help", "Licensing Info" }, { 63, "Help", "Translation Editor" }, { 64, "Help", "Check for updates" },
        { 65, "View", "Drawing Tools" }, { 66, "View", "Drawings Label" }, { 67, "View", "Waveforms" },
        { 68, "Transcription", "Copy To Clipboard (Plain Text)" },
        { 69, "Transcription", "Copy To Clipboard (HTML Table)" },
        { 70, "Transcription", "Export Transcript (Excel)" },
    };
    for (const Plain &p : plain)
        t.append({ p.id, QString::fromLatin1(p.category), QString::fromLatin1(p.title), QString() });
    // One frame while paused, a few seconds while playing: the arrows a player is moved with.
    t.append({ 71, pb, QStringLiteral("Step Forward"), QStringLiteral("RIGHT") });
    t.append({ 72, pb, QStringLiteral("Step Backward"), QStringLiteral("LEFT") });
    return t;
}

// The assigned shortcut first (menus show the first one), then the standard key if it differs.
QList<QKeySequence> shortcutsFor(int id, const QString &assigned)
{
    QList<QKeySequence> keys;
    const QKeySequence own(assigned, QKeySequence::PortableText);
    if (!own.isEmpty())
        keys << own;
    const QKeySequence standard = OVActionRegistry::standardShortcut(id);
    if (!standard.isEmpty() && standard != own)
        keys << standard;
    return keys;
}

} // namespace

OVActionRegistry::OVActionRegistry(QObject *parent) : QObject(parent) {}

const QList<OVActionInfo> &OVActionRegistry::table()
{
    static const QList<OVActionInfo> t = makeTable();
    return t;
}

const OVActionInfo *OVActionRegistry::info(int id)
{
    for (const OVActionInfo &i : table()) {
        if (i.id == id)
            return &i;
    }
    return nullptr;
}

QAction *OVActionRegistry::action(int id)
{
    if (QAction *a = m_actions.value(id))
        return a;
    const OVActionInfo *i = info(id);
    if (!i) {
        qCWarning(lcApp) << "ActionRegistry: no action with id" << id;
        return nullptr;
    }
    auto *a = new OVRegistryAction(i->title, this);
    a->setCheckable(i->checkable);
    a->setData(id);
    a->setShortcuts(shortcutsFor(id, i->defaultShortcut));
    // Whichever pane has the focus (the player, the timeline, a dock), but not in dialogs.
    a->setShortcutContext(Qt::WindowShortcut);
    m_actions.insert(id, a);
    return a;
}

bool OVActionRegistry::isLive(int id) const
{
    const auto *a = static_cast<const OVRegistryAction *>(m_actions.value(id));
    return a && a->hasHandler();
}

void OVActionRegistry::scopeToViews(int id, const QList<QWidget *> &views)
{
    QAction *a = action(id);
    if (!a)
        return;
    a->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    for (QWidget *view : views)
        view->addAction(a);
}

QString OVActionRegistry::effectiveShortcut(int id, const OVKeyboardSettings *settings)
{
    if (settings && settings->hasShortcut(id))
        return settings->shortcut(id);
    const OVActionInfo *i = info(id);
    return i ? i->defaultShortcut : QString();
}

QKeySequence OVActionRegistry::standardShortcut(int id)
{
    QKeySequence::StandardKey key;
    const char *fallback;
    switch (id) {
    case SaveProject: key = QKeySequence::Save; fallback = "Ctrl+S"; break;
    case OpenProject: key = QKeySequence::Open; fallback = "Ctrl+O"; break;
    case NewProject: key = QKeySequence::New; fallback = "Ctrl+N"; break;
    case CloseApplication: key = QKeySequence::Quit; fallback = "Ctrl+Q"; break;
    default: return QKeySequence();
    }
    // Some platforms (and Qt's offscreen one) bind no key to Quit; everyone expects Ctrl+Q there.
    const QKeySequence platform(key);
    return platform.isEmpty() ? QKeySequence(QString::fromLatin1(fallback), QKeySequence::PortableText) : platform;
}

void OVActionRegistry::applyShortcuts(const OVKeyboardSettings *settings)
{
    for (auto it = m_actions.cbegin(); it != m_actions.cend(); ++it)
        it.value()->setShortcuts(shortcutsFor(it.key(), effectiveShortcut(it.key(), settings)));
}
