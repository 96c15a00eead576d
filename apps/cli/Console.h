#pragma once

#include <QCommandLineParser>
#include <QTextStream>

// Standard output and error as text streams, and the shared way commands read their options.
namespace console {

// Exit statuses of every command.
inline constexpr int success = 0;
inline constexpr int badInput = 1; // the input was read but is not acceptable (a bad key URI, …)
inline constexpr int usageError = 2;

QTextStream& out();
QTextStream& err();

// Parses `arguments` (those after the command name) for the command `name`. On "--help" prints
// the help and returns success; on an unknown option or a wrong argument count prints the
// problem and returns usageError; otherwise returns -1 and the caller goes on.
int parse(QCommandLineParser& parser, const QString& name, const QStringList& arguments, int positionalCount);

} // namespace console
