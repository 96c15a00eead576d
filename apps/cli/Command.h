#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// One subcommand of marlock ("marlock demo", "marlock code …"). To add one: write a file with a
// function returning its Command and list it in main.cpp.
struct Command {
    QString name;    // the word after "marlock"
    QString summary; // one line for "marlock --help"
    // Runs with the arguments after the command's name; returns the exit status.
    std::function<int(const QStringList& arguments)> run;
};

Command demoCommand();
Command codeCommand();
Command uriCommand();
Command addCommand();
Command listCommand();
Command showCommand();
Command codesCommand();
Command renameCommand();
Command moveCommand();
Command removeCommand();
Command preferencesCommand();
Command syncCommand();
Command aboutCommand();

class QTextStream;
// The version line and the web page and support address; every product link with `allLinks`.
void printAbout(QTextStream& stream, bool allLinks);
