#pragma once

#include <CLI/CLI.hpp>

#include "Session.h"

namespace drive {

// Each adds its group of commands. A command starts an agent of its own, does its work and ends it;
// it throws Failure. The options must outlive the application.

// shot, watch, raw, cursor
void addViewCommands(CLI::App& app, SessionOptions& session);
// type, key, move, click, drag, wheel
void addInputCommands(CLI::App& app, SessionOptions& session);
// clip get, set, watch
void addClipCommands(CLI::App& app, SessionOptions& session);
// monitors
void addMonitorCommands(CLI::App& app, SessionOptions& session);
// resize
void addResizeCommand(CLI::App& app, SessionOptions& session);

// Set by SIGINT and SIGTERM, and when standard output takes nothing more; commands that go on until
// interrupted look at it.
bool interrupted();
// For options that are a time: what is wrong with the text, or nothing.
std::string checkSeconds(const std::string& text);

}  // namespace drive
