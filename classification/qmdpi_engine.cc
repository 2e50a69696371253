// Engines and bundles: how they come and go.
#include "classification/builtin_bundle.h"
#include "classification/qmdpi.h"
#include "classification/qmdpi_private.h"
#include "common/lum_log.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <string>
#include <utility>

std::vector<std::unique_ptr<qmdpi_engine>> g_qmdpi_engines;

struct t_exception_receiver {
    f_qmdpi_exception callback;
    void *args;
};

static t_exception_receiver g_exception_receiver;

// ---- The list of what lives ----

bool qmdpi_engine_lives(const qmdpi_engine *p_engine)
{
    return std::ranges::any_of(g_qmdpi_engines, [=](const auto &engine) { return engine.get() == p_engine; });
}

qmdpi_engine *qmdpi_bundle_engine(const qmdpi_bundle *p_bundle)
{
    for (const auto &engine : g_qmdpi_engines)
        for (const auto &bundle : engine->bundles)
            if (bundle.get() == p_bundle)
                return engine.get();
    return nullptr;
}

bool qmdpi_signature_lives(const qmdpi_signature *p_signature)
{
    uintptr_t place = reinterpret_cast<uintptr_t>(p_signature);
    for (const auto &engine : g_qmdpi_engines)
        for (const auto &bundle : engine->bundles) {
            uintptr_t offset = place - reinterpret_cast<uintptr_t>(bundle->content.signatures.data());
            if (offset / sizeof(qmdpi_signature) < bundle->content.signatures.size())
                return offset % sizeof(qmdpi_signature) == 0;
        }
    return false;
}

// ---- Exceptions ----

int qmdpi_exception_callback_set(f_qmdpi_exception callback, void *args)
{
    g_exception_receiver = {callback, args};
    return QMDPI_SUCCESS;
}

int qmdpi_fail_memory()
{
    static constexpr uint32_t out_of_memory = 0;
    if (g_exception_receiver.callback != nullptr)
        g_exception_receiver.callback(out_of_memory, nullptr, g_exception_receiver.args);
    return qmdpi_fail(QMDPI_ENOMEM);
}

// ---- Engines ----

static bool is_count(std::string_view text)
{
    uint32_t count = 0;
    const char *p_end = text.data() + text.size();
    std::from_chars_result result = std::from_chars(text.data(), p_end, count);
    return !text.empty() && result.ec == std::errc() && result.ptr == p_end;
}

static bool is_known_pair(std::string_view pair)
{
    size_t equals = pair.find('=');
    if (equals == std::string_view::npos)
        return false;
    std::string_view key = pair.substr(0, equals);
    std::string_view value = pair.substr(equals + 1);
    if (key == "injection_mode")
        return value == "packet" || value == "stream";
    return (key == "nb_workers" || key == "nb_flows") && is_count(value);
}

static bool is_config(std::string_view text)
{
    while (!text.empty()) {
        size_t end = std::min(text.find(';'), text.size());
        if (!is_known_pair(text.substr(0, end)))
            return false;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return true;
}

qmdpi_engine *qmdpi_engine_create(const char *config)
try {
    if (config != nullptr && !is_config(config)) {
        qmdpi_fail(QMDPI_EINVAL);
        return nullptr;
    }
    if (g_qmdpi_engines.size() == QMDPI_MAX_ENGINES) {
        qmdpi_fail(QMDPI_EOVERFLOW);
        return nullptr;
    }
    return g_qmdpi_engines.emplace_back(std::make_unique<qmdpi_engine>()).get();
} catch (const std::bad_alloc &) {
    qmdpi_fail_memory();
    return nullptr;
}

int qmdpi_engine_destroy(qmdpi_engine *engine)
{
    if (!qmdpi_engine_lives(engine))
        return qmdpi_fail(QMDPI_EINVAL);
    if (!engine->bundles.empty())
        return qmdpi_fail(QMDPI_EBUSY);
    std::erase_if(g_qmdpi_engines, [=](const auto &owned) { return owned.get() == engine; });
    return QMDPI_SUCCESS;
}

// ---- Bundles ----

struct t_file_closer {
    void operator()(FILE *p_file) const
    {
        fclose(p_file);
    }
};

// The whole file, cut one byte behind the largest size that the reader takes. 0 or an error.
static int read_file(const char *path, std::string *p_text)
{
    std::unique_ptr<FILE, t_file_closer> file(fopen(path, "re"));
    if (file == nullptr)
        return errno == ENOENT ? QMDPI_ENOENT : errno == EACCES ? QMDPI_EPERM : QMDPI_ELOAD;
    p_text->resize(BUNDLE_TEXT_MAX_SIZE + 1);
    p_text->resize(fread(p_text->data(), 1, p_text->size(), file.get()));
    return ferror(file.get()) == 0 ? QMDPI_SUCCESS : QMDPI_ELOAD;
}

static int code_of(e_bundle_text_result result)
{
    switch (result) {
    case BUNDLE_TEXT_OK:
        return QMDPI_SUCCESS;
    case BUNDLE_TEXT_TOO_LARGE:
        return QMDPI_EOVERFLOW;
    case BUNDLE_TEXT_BAD_VERSION:
        return QMDPI_EVERSION;
    case BUNDLE_TEXT_BAD_LINE:
        break;
    }
    return QMDPI_ELOAD;
}

static int load(const char *path, t_bundle_content *p_content)
{
    std::string file_text;
    std::string_view text = g_builtin_bundle;
    if (path != nullptr) {
        int status = read_file(path, &file_text);
        if (status != QMDPI_SUCCESS)
            return status;
        text = file_text;
    }
    t_bundle_text_error error = {};
    e_bundle_text_result result = bundle_text_read(text, p_content, &error);
    if (result != BUNDLE_TEXT_OK)
        LUM_LOG(LUM_LOG_ERROR, "bundle %s:%u: %s", path != nullptr ? path : "built in", error.line,
                error.reason);
    return code_of(result);
}

static void index_signatures(qmdpi_bundle *p_bundle)
{
    for (qmdpi_signature &signature : p_bundle->content.signatures) {
        p_bundle->by_id.emplace(signature.id, &signature);
        p_bundle->by_name.emplace(signature.name, &signature);
    }
}

qmdpi_bundle *qmdpi_bundle_create_from_file(qmdpi_engine *engine, const char *path)
try {
    if (!qmdpi_engine_lives(engine)) {
        qmdpi_fail(QMDPI_EINVAL);
        return nullptr;
    }
    auto bundle = std::make_unique<qmdpi_bundle>();
    int status = load(path, &bundle->content);
    if (status != QMDPI_SUCCESS) {
        qmdpi_fail(status);
        return nullptr;
    }
    index_signatures(bundle.get());
    return engine->bundles.emplace_back(std::move(bundle)).get();
} catch (const std::bad_alloc &) {
    qmdpi_fail_memory();
    return nullptr;
}

int qmdpi_bundle_destroy(qmdpi_bundle *bundle)
{
    qmdpi_engine *p_engine = qmdpi_bundle_engine(bundle);
    if (p_engine == nullptr)
        return qmdpi_fail(QMDPI_EINVAL);
    if (p_engine->p_active == bundle)
        p_engine->p_active = nullptr;
    std::erase_if(p_engine->bundles, [=](const auto &owned) { return owned.get() == bundle; });
    return QMDPI_SUCCESS;
}

// Every signature of a catalogue can be looked up from the start, so there is nothing to enable.
int qmdpi_bundle_signature_enable_all(qmdpi_bundle *bundle)
{
    return qmdpi_bundle_engine(bundle) != nullptr ? QMDPI_SUCCESS : qmdpi_fail(QMDPI_EINVAL);
}

int qmdpi_bundle_activate(qmdpi_bundle *bundle)
{
    qmdpi_engine *p_engine = qmdpi_bundle_engine(bundle);
    if (p_engine == nullptr || p_engine->p_active == bundle)
        return qmdpi_fail(QMDPI_EINVAL);
    p_engine->p_active = bundle;
    return QMDPI_SUCCESS;
}

const char *qmdpi_bundle_version_get_string(qmdpi_bundle *bundle)
{
    if (qmdpi_bundle_engine(bundle) == nullptr) {
        qmdpi_fail(QMDPI_EINVAL);
        return nullptr;
    }
    return bundle->content.version.c_str();
}
