#include "app/frmMain.h"
#include "ui/Prompter.h"

#include <QApplication>
#include <cstdio>
#include <cstring>

static bool hasArg(int argc, char **argv, const char *arg)
{
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], arg) == 0)
            return true;
    return false;
}

int main(int argc, char **argv)
{
    const bool batch = hasArg(argc, argv, "--batch");
    if (batch) {
        // batch runs never show a window
        qputenv("QT_QPA_PLATFORM", "offscreen");
    } else if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY")
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
    w.startUp();
    w.show();
    return app.exec();
}
