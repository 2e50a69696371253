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

static constexpr std::string_view name_lead = "commit-";
static constexpr std::string_view name_unconfirmed = ".unconfirmed-";
static constexpr std::string_view name_end = ".json";

static std::string file_of(const t_mgmt_files &files, const t_mgmt_commit_info &info)
{
    std::string file = files.folder + "/" + std::string(name_lead) + std::to_string(info.number);
    if (info.fallback)
        file += std::string(name_unconfirmed) + std::to_string(*info.fallback);
    return file + std::string(name_end);
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
    // What may have to come back stays, however many commits there are above it.
    std::optional<uint64_t> kept = p_files->commits.front().fallback;
    while (p_files->commits.size() > MGMT_FILES_ROLLBACKS + 1 && p_files->commits.back().number != kept) {
        unlink(file_of(*p_files, p_files->commits.back()).c_str());
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
    std::string file = file_of(*p_files, info);
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

static void alarm_raise(t_mgmt_files *p_files, std::string line)
{
    LUM_LOG(LUM_LOG_ERROR, "%s", line.c_str());
    p_files->alarms.push_back(std::move(line));
}

// ---- Unconfirmed commits ----

bool mgmt_files_confirm(t_mgmt_files *p_files, t_mgmt_error *p_error)
{
    t_mgmt_commit_info &newest = p_files->commits.front();
    t_mgmt_commit_info confirmed = newest;
    confirmed.fallback.reset();
    std::string from = file_of(*p_files, newest);
    std::string to = file_of(*p_files, confirmed);
    if (rename(from.c_str(), to.c_str()) != 0)
        return os_fail(to, "can't rename", p_error);
    MGMT_CRASH_POINT("file-confirmed");
    if (!folder_sync(p_files->folder, p_error)) {
        // As with a new file: what is not acknowledged must not be found later.
        rename(to.c_str(), from.c_str());
        return false;
    }
    newest.fallback.reset();
    return true;
}

void mgmt_files_undo(t_mgmt_files *p_files, const t_mgmt_tree &tree, const std::string &user,
                     const std::string &reason)
{
    std::vector<t_mgmt_commit_info> &commits = p_files->commits;
    uint64_t fallback = commits.front().fallback.value_or(0);
    std::string what = "commit " + std::to_string(commits.front().number) + " of " + commits.front().user;
    std::string comment = what + " not confirmed, undone: " + reason;
    LUM_LOG(LUM_LOG_NOTICE, "%s", comment.c_str());
    t_mgmt_error error;
    if (mgmt_files_write(p_files, tree, {0, user, mgmt_time_text(), comment}, &error))
        return;
    alarm_raise(p_files, "ALARM: " + what + " is undone, which can't be stored: " + mgmt_error_text(error) +
                             "; its file is removed instead");
    // This needs no room. A file that stays is undone by the next start.
    while (!commits.empty() && commits.front().number > fallback) {
        unlink(file_of(*p_files, commits.front()).c_str());
        commits.erase(commits.begin());
    }
    static_cast<void>(folder_sync(p_files->folder, &error));
}

// ---- Opening ----

// Reads a number off the front.
static bool number_read(std::string_view *p_text, uint64_t *p_number)
{
    auto [p_end, failure] = std::from_chars(p_text->data(), p_text->data() + p_text->size(), *p_number);
    p_text->remove_prefix(static_cast<size_t>(p_end - p_text->data()));
    return failure == std::errc() && *p_number < UINT64_MAX;
}

// What the name of a commit's file says; false for other files.
static bool name_read(std::string_view name, t_mgmt_commit_info *p_info)
{
    uint64_t fallback = 0;
    name.remove_prefix(name_lead.size());
    if (!number_read(&name, &p_info->number))
        return false;
    if (name.starts_with(name_unconfirmed)) {
        name.remove_prefix(name_unconfirmed.size());
        if (!number_read(&name, &fallback) || fallback >= p_info->number)
            return false;
        p_info->fallback = fallback;
    }
    return name == name_end;
}

// The commits in the folder, newest first; leftovers of a crash are removed.
static bool folder_scan(t_mgmt_files *p_files, std::vector<t_mgmt_commit_info> *p_found,
                        t_mgmt_error *p_error)
{
    DIR *p_folder = opendir(p_files->folder.c_str());
    if (p_folder == nullptr)
        return os_fail(p_files->folder, "can't open", p_error);
    while (const dirent *p_entry = readdir(p_folder)) {
        std::string_view name = p_entry->d_name;
        if (!name.starts_with(name_lead))
            continue;
        if (name.ends_with(".tmp"))
            unlink((p_files->folder + "/" + p_entry->d_name).c_str());
        t_mgmt_commit_info info = {};
        if (name_read(name, &info))
            p_found->push_back(info);
        p_files->next_number = std::max(p_files->next_number, info.number + 1);
    }
    closedir(p_folder);
    std::sort(p_found->begin(), p_found->end(),
              [](const auto &left, const auto &right) { return left.number > right.number; });
    return true;
}

static void bad_file_put_aside(t_mgmt_files *p_files, const std::string &file, const t_mgmt_error &fault)
{
    std::string aside = file + ".bad";
    bool moved = rename(file.c_str(), aside.c_str()) == 0;
    alarm_raise(p_files, "ALARM: stored configuration " + file + " can't be used: " + mgmt_error_text(fault) +
                             (moved ? "; kept as " + aside : "; it can't be renamed"));
}

// Adds a commit to the list, with what its file says of it.
static void info_add(t_mgmt_files *p_files, const t_mgmt_commit_info &found)
{
    std::string text;
    std::string_view config;
    t_mgmt_error ignored;
    t_mgmt_commit_info info;
    if (mgmt_file_content(file_of(*p_files, found), MGMT_FILE_HEAD_SIZE, &text, &ignored))
        mgmt_file_head_read(text, &info, &config);
    info.number = found.number;
    info.fallback = found.fallback;
    p_files->commits.push_back(std::move(info));
}

bool mgmt_files_open(t_mgmt_files *p_files, mgmt_work_tree_ptr *p_tree, t_mgmt_error *p_error)
{
    if (mkdir(p_files->folder.c_str(), 0700) != 0 && errno != EEXIST)
        return os_fail(p_files->folder, "can't make the folder", p_error);
    std::vector<t_mgmt_commit_info> found;
    p_files->next_number = 1;
    p_files->commits.clear();
    if (!folder_scan(p_files, &found, p_error))
        return false;
    mgmt_work_tree_ptr tree;
    t_mgmt_error fault;
    uint64_t highest = UINT64_MAX;  // that may be running
    for (const t_mgmt_commit_info &info : found) {
        if (info.fallback && info.number <= highest)
            highest = *info.fallback;
        std::string file = file_of(*p_files, info);
        bool is_wanted = tree == nullptr && info.number <= highest;
        if (is_wanted && !mgmt_file_check(p_files->p_schema, p_files->p_context, file, &tree, &fault)) {
            bad_file_put_aside(p_files, file, fault);
            continue;
        }
        info_add(p_files, info);
    }
    *p_tree = tree != nullptr ? tree : mgmt_tree_new(p_files->p_schema, p_files->p_context);
    if (!p_files->commits.empty() && p_files->commits.front().fallback)
        mgmt_files_undo(p_files, **p_tree, "system", "restart");
    return true;
}

// ---- Rollback ----

bool mgmt_files_rollback(const t_mgmt_files &files, size_t back, mgmt_work_tree_ptr *p_tree,
                         t_mgmt_error *p_error)
{
    if (back >= files.commits.size())
        return mgmt_fail(p_error, MGMT_ERR_NOEXISTS, "",
                         "there is no commit " + std::to_string(back) + " to go back to");
    return mgmt_file_check(files.p_schema, files.p_context, file_of(files, files.commits[back]), p_tree,
                           p_error);
}
