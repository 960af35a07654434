#include "ui/Prompter.h"

#include "app/Constants.h"

#include <QTextStream>

QString Prompter::titleOr(const QString &title)
{
    return title.isEmpty() ? QString::fromLatin1(nd::AppTitle) : title;
}

Prompter::Answer Prompter::firstAnswer(Buttons b)
{
    switch (b) {
    case YesNo:
    case YesNoCancel:
        return AnswerYes;
    case Ok:
    case OkCancel:
        break;
    }
    return AnswerOk;
}

QString Prompter::qtFileFilter(const QString &filter)
{
    if (!filter.contains(QLatin1Char('|')))
        return filter;
    const QStringList parts = filter.split(QLatin1Char('|'));
    QStringList out;
    for (qsizetype i = 0; i < parts.size(); i += 2) {
        QString description = parts.at(i).trimmed();
        const QString patterns = parts.value(i + 1).trimmed();
        if (patterns.isEmpty()) {
            if (!description.isEmpty())
                out << description;
            continue;
        }
        // the patterns in brackets are what Qt filters on: the description's own are replaced
        if (description.endsWith(QLatin1Char(')'))) {
            const qsizetype open = description.lastIndexOf(QLatin1Char('('));
            if (open >= 0)
                description = description.left(open).trimmed();
        }
        QString qtPatterns = patterns;
        qtPatterns.replace(QLatin1Char(';'), QLatin1Char(' '));
        out << (description.isEmpty() ? qtPatterns : description + QStringLiteral(" (") + qtPatterns + QLatin1Char(')'));
    }
    return out.join(QStringLiteral(";;"));
}

// ---------------------------------------------------------------- BatchPrompter

static void printErr(const QString &s)
{
    QTextStream err(stderr);
    err << s << Qt::endl;
}

Prompter::Answer BatchPrompter::message(const QString &text, Icon, Buttons buttons,
                                        const QString &title, std::optional<Answer> defaultAnswer)
{
    const Answer a = defaultAnswer.value_or(firstAnswer(buttons));
    static const char *names[] = {"OK", "Cancel", "Yes", "No"};
    printErr(QStringLiteral("[%1] %2").arg(titleOr(title), text)
             + (buttons == Ok ? QString() : QStringLiteral(" -> %1").arg(QLatin1String(names[a]))));
    return a;
}

std::optional<QString> BatchPrompter::input(const QString &prompt, const QString &title, const QString &)
{
    printErr(QStringLiteral("[%1] %2 -> cancelled").arg(titleOr(title), prompt));
    return std::nullopt;
}

QString BatchPrompter::openFileName(const QString &caption, const QString &, const QString &)
{
    printErr(QStringLiteral("[%1] -> cancelled").arg(caption));
    return {};
}

QString BatchPrompter::saveFileName(const QString &caption, const QString &, const QString &)
{
    printErr(QStringLiteral("[%1] -> cancelled").arg(caption));
    return {};
}

QString BatchPrompter::existingDirectory(const QString &caption, const QString &)
{
    printErr(QStringLiteral("[%1] -> cancelled").arg(caption));
    return {};
}

// ---------------------------------------------------------------- ScriptedPrompter

Prompter::Answer ScriptedPrompter::message(const QString &text, Icon icon, Buttons buttons,
                                           const QString &title, std::optional<Answer> defaultAnswer)
{
    asked.append({QStringLiteral("message"), text, icon, buttons, titleOr(title)});
    if (!answers.isEmpty())
        return answers.takeFirst();
    return defaultAnswer.value_or(firstAnswer(buttons));
}

std::optional<QString> ScriptedPrompter::input(const QString &prompt, const QString &title, const QString &)
{
    asked.append({QStringLiteral("input"), prompt, NoIcon, OkCancel, titleOr(title)});
    if (!inputs.isEmpty())
        return inputs.takeFirst();
    return std::nullopt;
}

QString ScriptedPrompter::openFileName(const QString &caption, const QString &, const QString &)
{
    asked.append({QStringLiteral("open"), caption, NoIcon, OkCancel, QString()});
    return files.isEmpty() ? QString() : files.takeFirst();
}

QString ScriptedPrompter::saveFileName(const QString &caption, const QString &, const QString &)
{
    asked.append({QStringLiteral("save"), caption, NoIcon, OkCancel, QString()});
    return files.isEmpty() ? QString() : files.takeFirst();
}

QString ScriptedPrompter::existingDirectory(const QString &caption, const QString &)
{
    asked.append({QStringLiteral("dir"), caption, NoIcon, OkCancel, QString()});
    return files.isEmpty() ? QString() : files.takeFirst();
}

QStringList ScriptedPrompter::texts() const
{
    QStringList out;
    for (const Asked &a : asked)
        out << a.text;
    return out;
}

bool ScriptedPrompter::wasAsked(const QString &text) const
{
    for (const Asked &a : asked)
        if (a.text == text)
            return true;
    return false;
}
