#include "lab/fp/fp_control.h"

#include <nlohmann/json.hpp>

static constexpr size_t max_line = 4 * 1024 * 1024;   // bytes
static constexpr uint32_t replay_slice_frames = 512;  // in one turn of the loop

static std::string answer_format(const fp_json &answer, bool json)
{
    return (json ? lab_answer_line(answer) : lab_answer_text(answer)) + '\n';
}

// No exception goes through the event loop; what can come up here is a lack of memory.
static bool replay_continue(t_fp_replay *p_replay, bool json, std::string *p_text)
{
    try {
        if (fp_replay_step(p_replay, replay_slice_frames))
            return false;
        *p_text = answer_format(fp_replay_answer(p_replay), json);
    } catch (const std::exception &error) {
        *p_text = answer_format(lab_answer_refusal(error.what()), json);
    }
    return true;
}

static t_lab_reply request_serve(t_fp_service *p_service, const t_fp_request &request)
{
    if (request.kind != FP_REQUEST_REPLAY)
        return {.text = answer_format(fp_service_answer(p_service, request), request.json)};
    std::string error;
    std::shared_ptr<t_fp_replay> replay = fp_replay_start(p_service, request, &error);
    if (replay == nullptr)
        return {.text = answer_format(lab_answer_refusal(error), request.json)};
    return {.job = [replay, json = request.json](std::string *p_text) {
        return replay_continue(replay.get(), json, p_text);
    }};
}

static t_lab_reply line_serve(t_fp_service *p_service, std::string_view line)
{
    t_fp_request request = {};
    std::string error;
    if (line.empty())
        return {};
    try {
        if (fp_request_parse(line, &request, &error))
            return request_serve(p_service, request);
    } catch (const std::exception &exception) {
        error = exception.what();
    }
    return {.text = answer_format(lab_answer_refusal(error), request.json)};
}

lab_control_ptr fp_control_open(event_base *p_base, t_fp_service *p_service, const std::string &path,
                                std::string *p_error)
{
    t_lab_line_server server = {
        .answer = [p_service](std::string_view line) { return line_serve(p_service, line); },
        .max_line = max_line,
        .too_long = answer_format(lab_answer_refusal("the line is too long"), false),
    };
    return lab_control_open_lines(p_base, path, std::move(server), p_error);
}
