#pragma once
#include "app/AppState.h"
#include "app/Commands.h"
#include "settings/Settings.h"
#include "settings/SettingsStore.h"

#include <QHash>
#include <QObject>
#include <functional>

class Prompter;

namespace nd {
// The lists whose views an area switches off while it rebuilds them.
enum class View { Groups, Favorites, Files, Addresses, Messages };
} // namespace nd

// What the areas of the program need of whatever presents them: the program-wide state and
// options, the settings store, the status bar, the progress bar, command states by name, the
// busy pointer and the boxes (Prompter). The main window presents it; batch runs use a
// BatchShell, which prints instead. The areas know nothing else of the window.
class Shell : public QObject {
    Q_OBJECT
public:
    Shell(Prompter *prompter, bool batch, QObject *parent = nullptr);
    ~Shell() override;

    AppState S;
    Settings opt;
    SettingsStore &store() { return m_store; }
    const SettingsStore &store() const { return m_store; }
    Prompter &prompter() { return *m_prompter; }
    void setPrompter(Prompter *p) { m_prompter = p; }
    // Batch runs: settings are read but never written, nothing waits for a person.
    bool isBatch() const { return m_batch; }

    // Status bar panels 1..3 (nd::Panel).
    virtual void setStatus(int panel, const QString &text) = 0;
    virtual QString status(int panel) const = 0;

    // The progress bar.
    virtual void setProgressRange(int minimum, int maximum) = 0;
    virtual void setProgress(int value) = 0;
    virtual int progress() const = 0;
    virtual int progressMinimum() const = 0;
    virtual int progressMaximum() const = 0;

    // Commands. An area attaches its procedure to a command by the menu item's name; a command
    // with no procedure stays off whatever its state says.
    void wireCommand(const QString &menuName, std::function<void()> handler);
    bool commandBuilt(const QString &menuName) const { return m_handlers.contains(menuName); }
    std::function<void()> handler(const QString &menuName) const { return m_handlers.value(menuName); }
    virtual void SetMenuState(nd::Cmd command, bool enabled) = 0;
    virtual bool menuState(nd::Cmd command) const = 0;
    void MenuOnOff(nd::Scope scope, bool enabled);
    // Runs a command as its menu item would: only while it is on. False when it did not run.
    bool runCommand(nd::Cmd command);
    // The Connect command reads "Disconnect" while a session is open; with none, Post is shown.
    virtual void setConnectedLook(bool connected) = 0;

    // Captions that count what the lists hold.
    virtual void UpdateCaption(nd::Caption caption) = 0;
    // The number of servers the setup dialog's caption counts.
    int serverCount() const { return m_serverCount; }
    void setServerCount(int n) { m_serverCount = n; }

    // Views of lists that are being rebuilt take no input.
    virtual void setViewEnabled(nd::View view, bool enabled) = 0;
    virtual bool viewEnabled(nd::View view) const = 0;

    virtual void setBusy(bool busy) = 0;
    // The desktop's "open" on a file or web address; a failure is told in a box.
    virtual void OpenDocument(const QString &target) = 0;

    // Stop: sets StopRequested, tells the state, and aborts the running transaction.
    void StopOperation();
    // Set by the session: aborts the transport's running transaction (null when none can run).
    std::function<void()> abortTransaction;

signals:
    void settingsLoaded();
    void shuttingDown();
    void groupListWanted(bool useCache);   // a connect asks for the group list
    void previewCleared();                 // a disconnect clears the large preview

protected:
    // The presentation learns that a command got its procedure.
    virtual void commandWired(const QString &menuName) { Q_UNUSED(menuName); }

private:
    SettingsStore m_store;
    Prompter *m_prompter;
    bool m_batch;
    int m_serverCount = 0;
    QHash<QString, std::function<void()>> m_handlers;
};
