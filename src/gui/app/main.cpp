#include "app/Batch.h"
#include "app/Signals.h"
#include "gui/app/frmMain.h"
#include "gui/ui/GuiPrompter.h"
#include "ui/Prompter.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDialog>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <cstdio>
#include <cstring>

namespace {
bool g_terminating = false;

// SIGTERM and SIGINT close the main window the normal way, so options and geometry are kept.
// Open dialogs are cancelled first (a dialog would otherwise keep the program alive), and boxes
// asked for afterwards take their default answers.
void closeOnTerminate(QWidget *window, GuiPrompter *prompter)
{
    nd::onTerminationSignal(window, [window, prompter] {
        g_terminating = true;
        prompter->setClosing(true);
        for (int i = 0; i < 32; ++i) {
            QWidget *modal = QApplication::activeModalWidget();
            if (!modal)
                break;
            if (auto *d = qobject_cast<QDialog *>(modal))
                d->reject();
            else
                modal->close();
            if (QApplication::activeModalWidget() == modal)
                break;   // it will not go: leave the rest to the window's own close
        }
        if (window->isVisible())   // before start-up has shown it, there is nothing to keep yet
            window->close();
    });
}
} // namespace

static bool hasArg(int argc, char **argv, const char *arg)
{
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], arg) == 0)
            return true;
    return false;
}

int main(int argc, char **argv)
{
#ifdef __GLIBC__
    // Articles arrive as buffers of about a megabyte, one after another. By default glibc maps
    // each such buffer afresh and unmaps it when freed, so every article costs hundreds of page
    // faults; keeping buffers of this size in the heap (and some freed memory with it) lets them
    // be reused.
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 64 * 1024 * 1024);
#endif
    if (hasArg(argc, argv, "--batch")) {
        // a batch run is the core alone: no window, no display, no platform plugin
        QCoreApplication app(argc, argv);
        QCoreApplication::setApplicationName(QStringLiteral("Newsdredge"));
        QCoreApplication::setOrganizationName(QStringLiteral("Newsdredge"));
        QCoreApplication::setApplicationVersion(QStringLiteral("3.8"));
        return nd::runBatch(QCoreApplication::arguments());
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY")
               && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        std::fprintf(stderr,
                     "Newsdredge needs a graphical display, and none was found: neither DISPLAY (X11) nor "
                     "WAYLAND_DISPLAY is set.\nStart it from a desktop session, or use --batch for runs "
                     "without a window.\n");
        return 2;
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Newsdredge"));
    QApplication::setOrganizationName(QStringLiteral("Newsdredge"));
    QApplication::setApplicationVersion(QStringLiteral("3.8"));

    GuiPrompter gui;
    frmMain w(&gui);
    closeOnTerminate(&w, &gui);
    w.startUp();
    if (g_terminating)
        return 0;   // told to end while the start-up dialogs were open
    w.show();
    return app.exec();
}
