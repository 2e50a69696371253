#include "cli/pager.h"

#include "cli/interrupt.h"
#include "cli/text_escape.h"

#include <algorithm>
#include <cstdio>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

struct t_screen {
    size_t rows;
    size_t columns;
};

static t_screen screen_size()
{
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row < 3 || size.ws_col < 10)
        return {24, 80};
    return {size.ws_row, size.ws_col};
}

size_t cli_screen_rows()
{
    return screen_size().rows;
}

// One key, without echo and without waiting for the line's end. Leaves the terminal as it was. 'q' for what
// is no key any more.
static char key_take()
{
    termios kept;
    char key = 'q';
    if (tcgetattr(STDIN_FILENO, &kept) != 0)
        return key;
    termios raw = kept;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    if (!cli_wait(STDIN_FILENO, POLLIN) || read(STDIN_FILENO, &key, 1) != 1)
        key = 'q';
    tcsetattr(STDIN_FILENO, TCSANOW, &kept);
    return key;
}

// The rows that are free after the question; 0 to leave.
static size_t ask(const t_screen &screen)
{
    static constexpr char question[] = "--More-- (space: page, enter: line, q: quit)";
    static constexpr char key_end = 4;  // Ctrl-D
    printf("%s", question);
    fflush(stdout);
    while (true) {
        char key = key_take();
        bool is_answer =
            key == ' ' || key == '\n' || key == '\r' || key == 'q' || key == 'Q' || key == key_end;
        if (!is_answer)
            continue;
        printf("\r%s\r", std::string(sizeof(question) - 1, ' ').c_str());
        return key == ' ' ? screen.rows - 1 : key == '\n' || key == '\r' ? 1 : 0;
    }
}

bool cli_pager_room(std::string_view line, size_t *p_rows_used)
{
    t_screen screen = screen_size();
    size_t rows = std::max<size_t>((cli_text_width(line) + screen.columns - 1) / screen.columns, 1);
    if (*p_rows_used > 0 && *p_rows_used + rows > screen.rows - 1) {
        size_t room = ask(screen);
        if (room == 0)
            return false;
        *p_rows_used = screen.rows - 1 - std::min(room, screen.rows - 1);
    }
    *p_rows_used += rows;
    return true;
}
