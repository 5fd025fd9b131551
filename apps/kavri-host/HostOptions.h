// Command line of kavri-host.
#ifndef KAVRI_HOST_OPTIONS_H
#define KAVRI_HOST_OPTIONS_H

#include <optional>
#include <string>

struct HostOptions {
  int port = 65000;
  int cameraPort = 65001;
  std::string programs = "programs/";
  int debugFlags = 0;
  std::string debugFile;      // empty: standard output
  std::string cameraFile;     // empty: no recording
  std::string sysVersionFile; // empty: the library's default
  std::string camera = "sim";  // "sim" or a Video4Linux2 device node
  std::string displayImage;    // empty: no display snapshots
  std::string screenImage;     // empty: no touch-screen snapshots
  int webPort = -1;            // the browser panel's port; -1: no panel, 0: any free port
  std::string webBind = "127.0.0.1";
  std::string bindAddress;     // empty: the servers listen on every address
};

// Parses argv; on --help prints the usage and returns nullopt with `exitCode`
// 0, on a bad option prints why and returns nullopt with `exitCode` 2.
std::optional<HostOptions> ParseHostOptions(int argc, const char* const* argv, int& exitCode);

#endif
