// PcmApi: the libasound PCM calls AlsaPlayback makes, one virtual per call.
// The base class forwards to libasound; tests derive a scripted fake to walk
// the device through error paths no real card produces on demand.
#pragma once

#include <alsa/asoundlib.h>

#include <cstdint>

class PcmApi {
public:
    virtual ~PcmApi() = default;

    // The process-wide instance that calls libasound.
    static PcmApi& libasound();

    virtual int open(snd_pcm_t** pcm, const char* name, snd_pcm_stream_t stream, int mode);
    virtual int close(snd_pcm_t* pcm);
    virtual int freeGlobalConfig();

    virtual int hwParamsMalloc(snd_pcm_hw_params_t** params);
    virtual int hwParamsAny(snd_pcm_t* pcm, snd_pcm_hw_params_t* params);
    virtual int hwParamsSetAccess(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, snd_pcm_access_t access);
    virtual int hwParamsSetFormat(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, snd_pcm_format_t format);
    virtual int hwParamsSetRateNear(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, unsigned* rate, int* dir);
    virtual int hwParamsSetChannels(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, unsigned channels);
    virtual int hwParamsSetBufferSizeNear(snd_pcm_t* pcm, snd_pcm_hw_params_t* params,
                                          snd_pcm_uframes_t* frames);
    virtual int hwParamsSetPeriodSizeNear(snd_pcm_t* pcm, snd_pcm_hw_params_t* params,
                                          snd_pcm_uframes_t* frames, int* dir);
    virtual int hwParamsSetPeriodsNear(snd_pcm_t* pcm, snd_pcm_hw_params_t* params, unsigned* periods,
                                       int* dir);
    virtual int hwParams(snd_pcm_t* pcm, snd_pcm_hw_params_t* params);
    virtual void hwParamsFree(snd_pcm_hw_params_t* params);

    virtual int swParamsMalloc(snd_pcm_sw_params_t** params);
    virtual int swParamsCurrent(snd_pcm_t* pcm, snd_pcm_sw_params_t* params);
    virtual int swParamsSetStartThreshold(snd_pcm_t* pcm, snd_pcm_sw_params_t* params,
                                          snd_pcm_uframes_t frames);
    virtual int swParamsSetAvailMin(snd_pcm_t* pcm, snd_pcm_sw_params_t* params, snd_pcm_uframes_t frames);
    virtual int swParams(snd_pcm_t* pcm, snd_pcm_sw_params_t* params);
    virtual void swParamsFree(snd_pcm_sw_params_t* params);

    virtual int nonblock(snd_pcm_t* pcm, int nonblocking);
    virtual snd_pcm_sframes_t writei(snd_pcm_t* pcm, const void* buffer, snd_pcm_uframes_t frames);
    virtual snd_pcm_sframes_t availUpdate(snd_pcm_t* pcm);
    virtual int recover(snd_pcm_t* pcm, int error, int silent);
    virtual int resume(snd_pcm_t* pcm);
    virtual int prepare(snd_pcm_t* pcm);
    virtual int drop(snd_pcm_t* pcm);
    // The pause between resume attempts of a suspended device.
    virtual void sleepMs(uint32_t ms);
};
