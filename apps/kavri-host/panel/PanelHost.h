// The browser panel inside kavri-host: what feeds it (the host's output, the
// I/O library's transfer area, the widget library's screen, the camera's
// frames, the library's program-info messages) and its server.
#ifndef KAVRI_HOST_PANEL_HOST_H
#define KAVRI_HOST_PANEL_HOST_H

#include <cstdint>
#include <string>

// Starts the panel on `address`:`port` (0: a free port) and says where on
// standard output. Call before the library prints anything and after the
// camera is chosen. Returns the port, or -1 after a message if it cannot
// listen.
int StartPanel(const std::string& address, int port);
// What the host hears; no-ops while no panel runs.
void PanelProgramInfo(const char* name, int32_t state, const char* stateText);
void PanelDisplayFrame(const uint8_t* frame);
// Before the process ends: the host's output still on its way is written out.
void FlushPanelOutput();

#endif
