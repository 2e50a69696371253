#include "lab/control/lab_program.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <getopt.h>

static const char *g_name = "lab";

// ---- Command line ----

static constexpr int first_unlettered = 256;
static constexpr int status_wrong = 2;

// What getopt_long returns for the option.
static int option_letter(const t_lab_program &program, size_t index)
{
    int letter = program.options[index].letter;
    return letter != 0 ? letter : first_unlettered + static_cast<int>(index);
}

// False for what is no option of the program's.
static bool option_take(const t_lab_program &program, int letter)
{
    for (size_t i = 0; i < program.options.size(); i++) {
        if (option_letter(program, i) != letter)
            continue;
        if (program.options[i].p_value != nullptr)
            *program.options[i].p_value = optarg;
        else
            *program.options[i].p_switch = true;
        return true;
    }
    return false;
}

int lab_options_read(const t_lab_program &program, int argc, char **argv, std::vector<std::string> *p_words)
{
    std::vector<option> names = {{"help", no_argument, nullptr, 'h'}};
    std::string letters = p_words != nullptr ? "+h" : "h";
    for (size_t i = 0; i < program.options.size(); i++) {
        const t_lab_option &item = program.options[i];
        bool takes_value = item.p_value != nullptr;
        names.push_back(
            {item.name, takes_value ? required_argument : no_argument, nullptr, option_letter(program, i)});
        if (item.letter != 0)
            letters += std::string(1, static_cast<char>(item.letter)) + (takes_value ? ":" : "");
    }
    names.push_back({nullptr, 0, nullptr, 0});
    int letter;
    while ((letter = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1) {
        if (letter == 'h')
            return fputs(program.usage, stdout) < 0;
        if (!option_take(program, letter))
            return status_wrong;
    }
    if (p_words != nullptr)
        p_words->assign(argv + optind, argv + argc);
    if (p_words != nullptr || optind == argc)
        return -1;
    fprintf(stderr, "%s: unknown word %s\n%s", program.name, argv[optind], program.usage);
    return status_wrong;
}

// ---- A daemon ----

static void on_signal(evutil_socket_t, short, void *p_arg)
{
    static_cast<const t_lab_daemon *>(p_arg)->on_end();
}

static lab_event_ptr signal_watch(t_lab_daemon *p_daemon, int number)
{
    lab_event_ptr watch(evsignal_new(p_daemon->p_base, number, on_signal, p_daemon));
    if (watch != nullptr)
        event_add(watch.get(), nullptr);
    return watch;
}

int lab_program_main(const t_lab_program &program, int argc, char **argv,
                     const std::function<int(t_lab_daemon *p_daemon)> &serve)
{
    g_name = program.name;
    int status = lab_options_read(program, argc, argv);
    if (status >= 0)
        return status;
    signal(SIGPIPE, SIG_IGN);
    lab_base_ptr base(event_base_new());
    if (base == nullptr)
        return lab_program_fail("no event loop");
    t_lab_daemon daemon = {.p_base = base.get(),
                           .on_end = [p_base = base.get()] { event_base_loopbreak(p_base); }};
    lab_event_ptr on_term = signal_watch(&daemon, SIGTERM);
    lab_event_ptr on_int = signal_watch(&daemon, SIGINT);
    return serve(&daemon);
}

int lab_daemon_run(const t_lab_daemon *p_daemon)
{
    return event_base_dispatch(p_daemon->p_base) == 0 ? 0 : 1;
}

int lab_program_fail(const std::string &reason)
{
    fprintf(stderr, "%s: %s\n", g_name, reason.c_str());
    return 1;
}

void lab_log(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    printf("%s: ", g_name);
    vprintf(format, arguments);
    putchar('\n');
    va_end(arguments);
    fflush(stdout);
}
