// filter_demo: the daemon's filter memory by hand. See README.md.
#include "lab/demo/demo_command.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

// Takes the next whole line off the front of the text. At the end of the input the rest counts as a line.
static bool take_line(std::string *p_text, bool is_end, std::string *p_line)
{
    size_t end = p_text->find('\n');
    if (end == std::string::npos && (!is_end || p_text->empty()))
        return false;
    *p_line = p_text->substr(0, end);
    p_text->erase(0, end == std::string::npos ? end : end + 1);
    return true;
}

// False at the end of the input.
static bool read_more(std::string *p_text)
{
    char piece[4096];
    ssize_t size = read(STDIN_FILENO, piece, sizeof(piece));
    if (size <= 0)
        return size < 0 && errno == EINTR;
    p_text->append(piece, static_cast<size_t>(size));
    return true;
}

// Commands are answered in order, with the wheel turning in between.
static int serve(t_demo *p_demo)
{
    std::string text;
    bool is_end = false;
    while (!is_end) {
        if (demo_tick_wait(STDIN_FILENO))
            is_end = !read_more(&text);
        for (std::string line; take_line(&text, is_end, &line);) {
            if (demo_command_ends(line))
                return 0;
            std::string answer = demo_command_run(p_demo, line);
            if (!answer.empty() && (printf("%s\n", answer.c_str()) < 0 || fflush(stdout) != 0))
                return 1;
            demo_timers_run(p_demo);
        }
        demo_timers_run(p_demo);
    }
    return 0;
}

int main(int argc, char **)
{
    if (argc > 1) {
        fprintf(stderr, "usage: filter_demo < COMMANDS\n");
        return 2;
    }
    std::string error;
    demo_ptr demo = demo_open(&error);
    if (demo == nullptr) {
        fprintf(stderr, "filter_demo: %s\n", error.c_str());
        return 1;
    }
    return serve(demo.get());
}
