#include "tarnd/config/tarn_flow.h"

#include "tarnd/core/tarn.h"

void tarn_config_flow_change(t_tarn *p_tarn, int flow_config_val)
{
    if (flow_config_val == p_tarn->flow)
        return;
    p_tarn->flow = flow_config_val;
    p_tarn->flow_ref += flow_config_val != 0 ? 1 : -1;
}

void tarn_config_flow_update_knob(t_tarn *p_tarn)
{
    uint32_t wanted = static_cast<uint32_t>(p_tarn->flow);
    if (*p_tarn->flow_p == wanted)
        return;
    *p_tarn->flow_p = wanted;
    if (wanted == 0)
        tarn_config_flow_clear(p_tarn);
}

// The forwarding plane ages its flows out by itself.
int tarn_config_flow_clear(t_tarn *)
{
    return 0;
}
