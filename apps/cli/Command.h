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
