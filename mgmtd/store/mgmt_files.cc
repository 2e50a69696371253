#include "mgmtd/store/mgmt_files.h"

#include "mgmtd/store/mgmt_crash.h"
#include "mgmtd/store/mgmt_files_private.h"

#include "common/lum_log.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr size_t block_size = 256 * 1024;  // bytes handed to one write

static bool os_fail(const std::string &file, const char *p_what, t_mgmt_error *p_error)
{
    return mgmt_fail(p_error, MGMT_ERR_OS, file, std::string(p_what) + ": " + strerror(errno));
}

static std::string file_of(const t_mgmt_files &files, uint64_t number)
{
    return files.folder + "/commit-" + std::to_string(number) + ".json";
}

std::string mgmt_time_text()
{
    time_t now = time(nullptr);
    tm parts = {};
    gmtime_r(&now, &parts);
    char text[32];
    strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

// ---- Writing ----

static bool folder_sync(const std::string &folder, t_mgmt_error *p_error)
{
    int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return os_fail(folder, "can't open", p_error);
    bool good = fsync(fd) == 0 || os_fail(folder, "can't synchronise", p_error);
    close(fd);
    return good;
}

static bool content_write(int fd, std::string_view text, const std::string &file, t_mgmt_error *p_error)
{
    while (!text.empty()) {
        ssize_t size = write(fd, text.data(), std::min(text.size(), block_size));
        if (size < 0 && errno == EINTR)
            continue;
        if (size <= 0)
            return os_fail(file, "can't write", p_error);
        text.remove_prefix(static_cast<size_t>(size));
        MGMT_CRASH_POINT("file-block-written");
    }
    return true;
}

static bool file_write(const std::string &file, std::string_view text, t_mgmt_error *p_error)
{
    int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return os_fail(file, "can't create", p_error);
    MGMT_CRASH_POINT("file-created");
    bool good = content_write(fd, text, file, p_error);
    MGMT_CRASH_POINT("file-written");
    good = good && (fsync(fd) == 0 || os_fail(file, "can't synchronise", p_error));
    MGMT_CRASH_POINT("file-synchronised");
    // Some file systems tell of a full disk only here.
    if (close(fd) != 0 && good)
        good = os_fail(file, "can't close", p_error);
    return good;
}

// Gives the written file its name; from then on it is the commit.
static bool file_publish(const t_mgmt_files &files, const std::string &temporary, const std::string &file,
                         t_mgmt_error *p_error)
{
    if (rename(temporary.c_str(), file.c_str()) != 0)
        return os_fail(file, "can't rename", p_error);
    MGMT_CRASH_POINT("file-renamed");
    if (folder_sync(files.folder, p_error))
        return true;
    // Not known to be durable, so not acknowledged: it must not be found later either.
    unlink(file.c_str());
    return false;
}

static void old_files_remove(t_mgmt_files *p_files)
{
    while (p_files->commits.size() > MGMT_FILES_ROLLBACKS + 1) {
        unlink(file_of(*p_files, p_files->commits.back().number).c_str());
        p_files->commits.pop_back();
        MGMT_CRASH_POINT("old-file-removed");
    }
}

bool mgmt_files_write(t_mgmt_files *p_files, const t_mgmt_tree &tree, t_mgmt_commit_info info,
                      t_mgmt_error *p_error)
{
    info.number = p_files->next_number;
    info.user.resize(std::min(info.user.size(), MGMT_FILES_MAX_TEXT));
    info.comment.resize(std::min(info.comment.size(), MGMT_FILES_MAX_TEXT));
    std::string text;
    mgmt_file_head_write(info, &text);
    mgmt_tree_print(tree, nullptr, 0, &text);
    text += "}\n";
    std::string file = file_of(*p_files, info.number);
    std::string temporary = file + ".tmp";
    MGMT_CRASH_POINT("before-file");
    if (!file_write(temporary, text, p_error) || !file_publish(*p_files, temporary, file, p_error)) {
        unlink(temporary.c_str());
        return false;
    }
    MGMT_CRASH_POINT("folder-synchronised");
    p_files->next_number++;
    p_files->commits.insert(p_files->commits.begin(), std::move(info));
    old_files_remove(p_files);
    return true;
}

// ---- Opening ----

// Numbers of the commits in the folder, highest first; leftovers of a crash are removed.
static bool folder_scan(t_mgmt_files *p_files, std::vector<uint64_t> *p_numbers, t_mgmt_error *p_error)
{
    DIR *p_folder = opendir(p_files->folder.c_str());
    if (p_folder == nullptr)
        return os_fail(p_files->folder, "can't open", p_error);
    while (const dirent *p_entry = readdir(p_folder)) {
        std::string_view name = p_entry->d_name;
        static constexpr std::string_view lead = "commit-";
        if (!name.starts_with(lead))
            continue;
        if (name.ends_with(".tmp"))
            unlink((p_files->folder + "/" + p_entry->d_name).c_str());
        uint64_t number = 0;
        auto [p_end, failure] = std::from_chars(name.data() + lead.size(), name.data() + name.size(), number);
        if (failure == std::errc() && number < UINT64_MAX)
            p_files->next_number = std::max(p_files->next_number, number + 1);
        if (failure == std::errc() && std::string_view(p_end) == ".json")
            p_numbers->push_back(number);
    }
    closedir(p_folder);
    std::sort(p_numbers->rbegin(), p_numbers->rend());
    return true;
}

static void alarm_raise(t_mgmt_files *p_files, std::string line)
{
    LUM_LOG(LUM_LOG_ERROR, "%s", line.c_str());
    p_files->alarms.push_back(std::move(line));
}

static void bad_file_put_aside(t_mgmt_files *p_files, const std::string &file, const t_mgmt_error &fault)
{
    std::string aside = file + ".bad";
    bool moved = rename(file.c_str(), aside.c_str()) == 0;
    alarm_raise(p_files, "ALARM: stored configuration " + file + " can't be used: " + mgmt_error_text(fault) +
                             (moved ? "; kept as " + aside : "; it can't be renamed"));
}

// What a commit's file says of itself.
static void info_add(t_mgmt_files *p_files, uint64_t number)
{
    std::string text;
    std::string_view config;
    t_mgmt_error ignored;
    t_mgmt_commit_info info;
    if (mgmt_file_content(file_of(*p_files, number), MGMT_FILE_HEAD_SIZE, &text, &ignored))
        mgmt_file_head_read(text, &info, &config);
    info.number = number;
    p_files->commits.push_back(std::move(info));
}

bool mgmt_files_open(t_mgmt_files *p_files, mgmt_work_tree_ptr *p_tree, t_mgmt_error *p_error)
{
    if (mkdir(p_files->folder.c_str(), 0700) != 0 && errno != EEXIST)
        return os_fail(p_files->folder, "can't make the folder", p_error);
    std::vector<uint64_t> numbers;
    p_files->next_number = 1;
    p_files->commits.clear();
    if (!folder_scan(p_files, &numbers, p_error))
        return false;
    mgmt_work_tree_ptr tree;
    t_mgmt_error fault;
    for (uint64_t number : numbers) {
        std::string file = file_of(*p_files, number);
        if (tree == nullptr && !mgmt_file_check(p_files->p_schema, p_files->p_context, file, &tree, &fault)) {
            bad_file_put_aside(p_files, file, fault);
            continue;
        }
        info_add(p_files, number);
    }
    *p_tree = tree != nullptr ? tree : mgmt_tree_new(p_files->p_schema, p_files->p_context);
    return true;
}

// ---- Rollback ----

bool mgmt_files_rollback(const t_mgmt_files &files, size_t back, mgmt_work_tree_ptr *p_tree,
                         t_mgmt_error *p_error)
{
    if (back >= files.commits.size())
        return mgmt_fail(p_error, MGMT_ERR_NOEXISTS, "",
                         "there is no commit " + std::to_string(back) + " to go back to");
    return mgmt_file_check(files.p_schema, files.p_context, file_of(files, files.commits[back].number),
                           p_tree, p_error);
}
