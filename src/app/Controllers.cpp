#include "app/frmMain.h"

// Each area of the program attaches itself here: it creates its object (parented to the main
// window), wires its commands with wireCommand() and connects to the lists it serves.
// Keep one line per area.
#include "news/Session.h"
#include "download/Downloader.h"

void frmMain::createControllers()
{
    session = new NewsSession(*this);
    downloader = new Downloader(*this);
}
