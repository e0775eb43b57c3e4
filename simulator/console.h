// SPDX-License-Identifier: MIT

#ifndef CONSOLE_H
#define CONSOLE_H

#include "printer.h"

/// What a person can type, one command a line; shown for --help and on an unknown command.
extern const char kConsoleHelp[];

/// Carries one command line out on the printers that it names.
/// @return what is wrong with the line, or an empty text when it has been carried out
std::string RunCommand(const std::string& line, std::vector<Printer>& printers);

#endif // CONSOLE_H
