// PcmApi: the libasound PCM calls AlsaPlayback makes, forwarded as they are.
#include "audio/PcmApi.h"

#include "core/Clock.h"

PcmApi& PcmApi::libasound() {
    static PcmApi instance;
    return instance;
}

int PcmApi::open(snd_pcm_t** pcm, const char* name, snd_pcm_stream_t stream, int mode) {
    return snd_pcm_open(pcm, name, stream, mode);
}
int PcmApi::close(snd_pcm_t* pcm) { return snd_pcm_close(pcm); }
int PcmApi::freeGlobalConfig() { return snd_config_update_free_global(); }

int PcmApi::hwParamsMalloc(snd_pcm_hw_params_t** params) { return snd_pcm_hw_params_malloc(params); }
int PcmApi::hwParamsAny(snd_pcm_t* pcm, snd_pcm_hw_params_t* params) {
    return snd_pcm_hw_params_any(pcm, params);
}
int PcmApi::hwParamsSetAccess(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, snd_pcm_access_t access) {
    return snd_pcm_hw_params_set_access(pcm, params, access);
}
int PcmApi::hwParamsSetFormat(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, snd_pcm_format_t format) {
    return snd_pcm_hw_params_set_format(pcm, params, format);
}
int PcmApi::hwParamsSetRateNear(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, unsigned* rate, int* dir) {
    return snd_pcm_hw_params_set_rate_near(pcm, params, rate, dir);
}
int PcmApi::hwParamsSetChannels(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, unsigned channels) {
    return snd_pcm_hw_params_set_channels(pcm, params, channels);
}
int PcmApi::hwParamsSetBufferSizeNear(snd_pcm_t* pcm, snd_pcm_hw_params_t* params,
                                      snd_pcm_uframes_t* frames) {
    return snd_pcm_hw_params_set_buffer_size_near(pcm, params, frames);
}
int PcmApi::hwParamsSetPeriodSizeNear(snd_pcm_t* pcm, snd_pcm_hw_params_t* params,
                                      snd_pcm_uframes_t* frames, int* dir) {
    return snd_pcm_hw_params_set_period_size_near(pcm, params, frames, dir);
}
int PcmApi::hwParamsSetPeriodsNear(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, unsigned* periods,
                                   int* dir) {
    return snd_pcm_hw_params_set_periods_near(pcm, params, periods, dir);
}
int PcmApi::hwParams(snd_pcm_t* pcm, snd_pcm_hw_params_t* params) { return snd_pcm_hw_params(pcm, params); }
void PcmApi::hwParamsFree(snd_pcm_hw_params_t* params) { snd_pcm_hw_params_free(params); }

int PcmApi::swParamsMalloc(snd_pcm_sw_params_t** params) { return snd_pcm_sw_params_malloc(params); }
int PcmApi::swParamsCurrent(snd_pcm_t* pcm, snd_pcm_sw_params_t* params) {
    return snd_pcm_sw_params_current(pcm, params);
}
int PcmApi::swParamsSetStartThreshold(snd_pcm_t* pcm, snd_pcm_sw_params_t* params,
                                      snd_pcm_uframes_t frames) {
    return snd_pcm_sw_params_set_start_threshold(pcm, params, frames);
}
int PcmApi::swParamsSetAvailMin(snd_pcm_t* pcm, snd_pcm_sw_params_t* params, snd_pcm_uframes_t frames) {
    return snd_pcm_sw_params_set_avail_min(pcm, params, frames);
}
int PcmApi::swParams(snd_pcm_t* pcm, snd_pcm_sw_params_t* params) { return snd_pcm_sw_params(pcm, params); }
void PcmApi::swParamsFree(snd_pcm_sw_params_t* params) { snd_pcm_sw_params_free(params); }

int PcmApi::nonblock(snd_pcm_t* pcm, int nonblocking) { return snd_pcm_nonblock(pcm, nonblocking); }
snd_pcm_sframes_t PcmApi::writei(snd_pcm_t* pcm, const void* buffer, snd_pcm_uframes_t frames) {
    return snd_pcm_writei(pcm, buffer, frames);
}
snd_pcm_sframes_t PcmApi::availUpdate(snd_pcm_t* pcm) { return snd_pcm_avail_update(pcm); }
int PcmApi::recover(snd_pcm_t* pcm, int error, int silent) { return snd_pcm_recover(pcm, error, silent); }
int PcmApi::resume(snd_pcm_t* pcm) { return snd_pcm_resume(pcm); }
int PcmApi::prepare(snd_pcm_t* pcm) { return snd_pcm_prepare(pcm); }
int PcmApi::drop(snd_pcm_t* pcm) { return snd_pcm_drop(pcm); }
void PcmApi::sleepMs(uint32_t ms) { ::sleepMs(ms); }
