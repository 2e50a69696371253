#include "tests/lab/fp/fp_ask.h"

static uint64_t one_tick()
{
    return 1;
}

FpAsking::FpAsking() : service{fp_engine_new(pool.spans()), fp_clock_make(one_tick, 1000), {}} {}

fp_json FpAsking::answer(const std::string &line)
{
    t_fp_request request = {};
    std::string error;
    if (!fp_request_parse(line, &request, &error))
        return lab_answer_refusal(error);
    if (request.kind != FP_REQUEST_REPLAY)
        return fp_service_answer(&service, request);
    fp_replay_ptr replay = fp_replay_start(&service, request, &error);
    if (replay == nullptr)
        return lab_answer_refusal(error);
    while (fp_replay_step(replay.get(), replay_frames))
        continue;
    return fp_replay_answer(replay.get());
}
