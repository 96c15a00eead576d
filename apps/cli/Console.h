#pragma once

#include <QCommandLineParser>
#include <QJsonValue>
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
// The same for commands that take `minimum` to `maximum` arguments.
int parse(QCommandLineParser& parser, const QString& name, const QStringList& arguments, int minimum,
          int maximum);

// Prints "marlock <command>: <message>" on standard error and returns `status`.
int fail(const QString& command, const QString& message, int status = badInput);

// Whether standard output is a terminal (live views and colours only make sense on one).
bool outputIsTerminal();

// Prints `value` as indented JSON on standard output.
void printJson(const QJsonValue& value);

} // namespace console
