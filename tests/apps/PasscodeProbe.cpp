// The "program" the passcode tests drive, on a pipe or a pseudo-terminal:
//
//   passcode_probe read|new RESULT-FILE
//
// reads a passcode as a sync command would, then writes "passcode=<it>" or "problem=<why>" and
// "echo=<0|1>" (whether the terminal echoes again afterwards; "-" without one) to RESULT-FILE,
// so that nothing but the prompts reaches the terminal.
#include "PasscodeReader.h"

#include <QFile>

#include <termios.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    const bool isNew = QByteArray(argv[1]) == "new";
    QString problem;
    const auto passcode = isNew ? passcode::readNew("New passcode: ", "Again: ", &problem)
                                : passcode::read("Passcode: ", &problem);
    QByteArray result = passcode ? "passcode=" + passcode->toUtf8() : "problem=" + problem.toUtf8();
    termios settings{};
    result += "\necho=";
    result += isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &settings) == 0
                  ? ((settings.c_lflag & ECHO) ? "1" : "0")
                  : "-";
    QFile file(QString::fromLocal8Bit(argv[2]));
    return file.open(QIODevice::WriteOnly) && file.write(result + "\n") > 0 ? 0 : 1;
}
