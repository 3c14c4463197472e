#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Session.h"

namespace drive {

// Each adds its group of commands. A command starts an agent of its own, does its work and ends it;
// it throws Failure. The options must outlive the application.

// shot, cursor, record, live, watch, raw
void addViewCommands(CLI::App& app, SessionOptions& session);
// type, key, move, click, drag, wheel
void addInputCommands(CLI::App& app, SessionOptions& session);
// clip get, set, watch
void addClipCommands(CLI::App& app, SessionOptions& session);
// monitors
void addMonitorCommands(CLI::App& app, SessionOptions& session);
// resize
void addResizeCommand(CLI::App& app, SessionOptions& session);
// params, doctor
void addInquiryCommands(CLI::App& app, SessionOptions& session);
// record-session, play-session
void addRecordedCommands(CLI::App& app, SessionOptions& session);

// For options that are a time: what is wrong with the text, or nothing.
std::string checkSeconds(const std::string& text);
// The end of a command's help.
void setExamples(CLI::App& command, const std::string& first, const std::string& second);

}  // namespace drive
