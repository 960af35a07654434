#include "app/Shell.h"

Shell::Shell(Prompter *prompter, bool batch, QObject *parent)
    : QObject(parent), m_prompter(prompter), m_batch(batch)
{
    if (batch)
        m_store.setReadOnly(true);
}

Shell::~Shell() = default;

void Shell::wireCommand(const QString &menuName, std::function<void()> handler)
{
    m_handlers.insert(menuName, std::move(handler));
    commandWired(menuName);
}

void Shell::MenuOnOff(nd::Scope scope, bool enabled)
{
    for (nd::Cmd c : nd::scopeCommands(scope))
        SetMenuState(c, enabled);
}

bool Shell::runCommand(nd::Cmd command)
{
    if (!menuState(command))
        return false;
    const auto run = handler(nd::commandName(command));
    if (!run)
        return false;
    run();
    return true;
}

void Shell::StopOperation()
{
    S.StopRequested = true;
    SetMenuState(nd::Cmd::Stop, false);
    setStatus(nd::PanelState, QStringLiteral("Stopped"));
    setProgress(0);
    if (abortTransaction)
        abortTransaction();
}
