#pragma once

#include <QString>

#include <optional>

// Reading the sync passcode the only ways that keep it out of the process list and the shell's
// history: typed at a terminal with echo off, or piped on standard input by a script. There is
// deliberately no way to pass it as an argument.
//
//   QString problem;
//   auto passcode = passcode::read(QStringLiteral("Sync passcode: "), &problem);
//   if (!passcode)
//       return console::fail(name, problem);
namespace passcode {

// When standard input is a terminal: writes `prompt` to standard error, reads one line with
// echo off, and restores the terminal afterwards, also when Ctrl-C or a termination signal ends
// the process while it waits. Otherwise: reads one line of standard input (without its line
// break). Absent, with `problem` saying why, for an empty passcode, end of input before any, or
// a line of more than 1024 bytes.
std::optional<QString> read(const QString& prompt, QString* problem);

// A new passcode. At a terminal it is asked twice (`prompt`, then `confirmPrompt`) and must be
// the same both times; from standard input one line is read, as by read().
std::optional<QString> readNew(const QString& prompt, const QString& confirmPrompt, QString* problem);

} // namespace passcode
