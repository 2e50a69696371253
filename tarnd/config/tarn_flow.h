// The flow-visibility knob: a word in shared memory that follows the configured setting at the end of each
// commit. The count of cflowd actions is bookkeeping and switches nothing on.
#pragma once

struct t_tarn;

void tarn_config_flow_change(t_tarn *p_tarn, int flow_config_val);
void tarn_config_flow_update_knob(t_tarn *p_tarn);
int tarn_config_flow_clear(t_tarn *p_tarn);
