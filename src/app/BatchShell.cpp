#include "app/BatchShell.h"

#include "app/BatchSupport.h"
#include "ui/Prompter.h"

BatchShell::BatchShell(Prompter *prompter, QObject *parent)
    : Shell(prompter, true, parent)
{
}

void BatchShell::setStatus(int panel, const QString &text)
{
    if (panel < 1 || panel > 3 || m_panels[panel - 1] == text)
        return;
    m_panels[panel - 1] = text;
    if (!text.isEmpty() && panel != nd::PanelPart)
        nd::batch::writeErr(text);   // server text, made safe for a terminal
}

QString BatchShell::status(int panel) const
{
    return panel >= 1 && panel <= 3 ? m_panels[panel - 1] : QString();
}

void BatchShell::setProgressRange(int minimum, int maximum)
{
    m_progressMin = minimum;
    m_progressMax = maximum;
    m_progress = qBound(minimum, m_progress, maximum);
}

void BatchShell::SetMenuState(nd::Cmd command, bool enabled)
{
    m_commands.insert(int(command), enabled);
}

bool BatchShell::menuState(nd::Cmd command) const
{
    return m_commands.value(int(command), false) && commandBuilt(nd::commandName(command));
}

void BatchShell::setViewEnabled(nd::View view, bool enabled)
{
    m_views.insert(int(view), enabled);
}

bool BatchShell::viewEnabled(nd::View view) const
{
    return m_views.value(int(view), true);
}

void BatchShell::OpenDocument(const QString &target)
{
    // nothing is opened on a run without a desktop
    prompter().message(QStringLiteral("Error Executing Application or File Not Found") + QStringLiteral(": ") + target,
                       Prompter::NoIcon, Prompter::Ok);
}
