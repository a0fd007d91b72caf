#include "password.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace apps {

QByteArray readPassword(QString const& prompt)
{
    bool const typed = ::isatty(STDIN_FILENO);
    termios saved{};
    if (typed) {
        std::fputs(prompt.toLocal8Bit().constData(), stderr);
        std::fflush(stderr);
        ::tcgetattr(STDIN_FILENO, &saved);
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
    }
    std::string line;
    std::getline(std::cin, line);
    if (typed) {
        ::tcsetattr(STDIN_FILENO, TCSANOW, &saved);
        std::fputs("\n", stderr);
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    QByteArray password(line.data(), int(line.size()));
    // The copy in the standard string is not left behind in the heap.
    std::fill(line.begin(), line.end(), '\0');
    return password;
}

} // namespace apps
