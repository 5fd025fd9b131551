#include "HostOptions.h"

#include <arpa/inet.h>

#include <cstdio>

#include "CliNumber.h"

std::optional<HostOptions> ParseHostOptions(int argc, const char* const* argv, int& exitCode) {
  HostOptions options;
  CLI::App app("Runs a controller: the KavriLib PC link server, with the host's camera and display.", "kavri-host");
  app.option_defaults()->always_capture_default();
  AddNumberOption(app, "--port", options.port, 1, 65535, "PC link port");
  AddNumberOption(app, "--camera-port", options.cameraPort, 1, 65535, "camera stream port");
  app.add_option("--programs", options.programs, "program library for flash files, created if missing")
      ->check(CLI::Validator([](std::string& v) { return v.empty() ? "must not be empty" : ""; }, ""));
  AddNumberOption(app, "--debug-flags", options.debugFlags, 0, 0x7FFFFFFF,
                  "debug output bits: 1 rates, 2 analyses, 4 sharpness, 16 camera recording, "
                  "128 camera formats, 256 buffers");
  app.add_option("--debug-file", options.debugFile, "where debug output goes (default standard output)");
  app.add_option("--camera-file", options.cameraFile, "camera recording file (with debug bit 16)");
  app.add_option("--sysversion", options.sysVersionFile, "system version file (default /etc/sysversion)");
  app.add_option("--camera", options.camera,
                 "'sim' for the simulated scene camera, or a Video4Linux2 device such as /dev/video0");
  app.add_option("--display-image", options.displayImage,
                 "write the 128x64 display to this file (.png, else PBM) each time a program updates it");
  app.add_option("--screen-image", options.screenImage, "write the 240x320 touch screen to this PNG whenever it changes");
  AddNumberOption(app, "--web", options.webPort, 0, 65535,
                  "serve the controller's panel to a browser on this port (0: a free one, printed)")
      ->default_str("off");
  app.add_option("--web-bind", options.webBind, "address the panel listens on; anything but loopback lets others in")
      ->check(CLI::Validator([](std::string& v) { return v.empty() ? "must not be empty" : ""; }, ""));
  app.add_option("--bind", options.bindAddress,
                 "listen for the PC and the camera stream on this local IPv4 address only (default: all)")
      ->check(CLI::Validator(
          [](std::string& v) {
            in_addr parsed;
            return inet_pton(AF_INET, v.c_str(), &parsed) == 1 ? "" : "must be an IPv4 address such as 127.0.0.1";
          },
          "ADDR"));
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    fputs(app.help().c_str(), stdout);
    exitCode = 0;
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    fprintf(stderr, "kavri-host: %s\nRun kavri-host --help for the options.\n", error.what());
    exitCode = 2;
    return std::nullopt;
  }
  if (options.programs.back() != '/') options.programs += '/';  // the library uses it as a plain prefix
  return options;
}
