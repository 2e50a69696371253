// Turning the forwarding plane's classification on and off.
#include "common/msgq_util.h"
#include "fp_api/fp_tables.h"
#include "tarnd/core/tarn.h"
#include "tarnd/dpi/tarn_dpi.h"
#include "tarnd/peers/tarn_ftm.h"

#include <cerrno>
#include <cstring>

void tarn_dpi_config_change(t_tarn *p_tarn, int dpi_config_val)
{
    if (p_tarn->dpi == dpi_config_val)
        return;
    p_tarn->dpi = dpi_config_val;
    p_tarn->dpi_ref += dpi_config_val != 0 ? 1 : -1;
}

void tarn_dpi_update_knob(t_tarn *p_tarn)
{
    uint32_t reasons = static_cast<uint32_t>(p_tarn->dpi_ref);
    if (*g_fp_dpi_enable_knob == reasons)
        return;
    *g_fp_dpi_enable_knob = reasons;
    if (reasons == 0)
        tarn_dpi_clear_fp_flows(p_tarn);
}

int tarn_dpi_clear_fp_flows(t_tarn *p_tarn)
{
    static constexpr uint16_t size = 1;  // of what is sent: the type alone
    if (p_tarn == nullptr || p_tarn->p_ftm_msgq == nullptr)
        return EBADMSG;
    void *p_msg = msgq_msg_malloc(p_tarn->p_ftm_msgq, TARN_FTM_MSG_ALLOC_SIZE);
    if (p_msg == nullptr)
        return ENOMEM;
    memset(p_msg, 0, TARN_FTM_MSG_ALLOC_SIZE);
    *static_cast<uint8_t *>(p_msg) = TARN_MSG_DPI_CLEAR_FLOWS;
    if (msgq_write(p_tarn->p_ftm_msgq, p_msg, size) != ERR_OK)
        msgq_msg_free(p_tarn->p_ftm_msgq, p_msg);
    return 0;
}
