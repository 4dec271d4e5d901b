// RenderCommand: one pass of a sub-song into a 16-bit stereo WAV file. The
// player renders into a small block that goes straight to the file through
// a write buffer, so memory stays the same however long the song plays.
// Every write counts: a failed block, header patch, flush or close fails the
// command with "failed to write NAME".
#include <cstdio>

#include "app/oxamod/ModCommands.h"
#include "audio/AudioFile.h"
#include "core/BufferedStream.h"
#include "core/FileStream.h"
#include "core/Stopwatch.h"
#include "modplayer/ModulePlayer.h"

namespace {

constexpr int32_t Channels = 2;
constexpr int32_t BlockFrames = 4096;
constexpr int32_t WriteBufferBytes = 65536;
// The WAV sizes are 32-bit: the RIFF size (data + 36) must still fit.
constexpr int64_t MaxDataBytes = 0xFFFFFFFFll - 36;

// -v: a line on standard error, rewritten in place about every half second
// of rendered audio, then a summary. The position shown is where the block
// just written began: after the last block the player has already left the
// song's end.
class RenderProgress {
public:
    RenderProgress(bool enabled, uint32_t sampleRate) : enabled(enabled), sampleRate(sampleRate) {
        if (enabled)
            timer.start();
    }

    void update(int32_t order, int32_t row, int64_t frames) {
        lastOrder = order, lastRow = row;
        if (enabled && frames >= nextReport)
            show(frames);
    }

    void finish(int64_t frames) {
        if (!enabled)
            return;
        show(frames);
        double seconds = double(frames) / sampleRate;
        double elapsed = double(timer.stop()) / 1000.0;
        std::fprintf(stderr, "\nrendered %.2f s in %.2f s", seconds, elapsed);
        if (elapsed > 0)
            std::fprintf(stderr, " (%.0fx real time)", seconds / elapsed);
        std::fprintf(stderr, "\n");
    }

private:
    void show(int64_t frames) {
        nextReport = frames + sampleRate / 2;
        std::fprintf(stderr, "\rorder %3d  row %3d  %8.2f s", int(lastOrder), int(lastRow),
                     double(frames) / sampleRate);
    }

    bool enabled;
    uint32_t sampleRate;
    int64_t nextReport = 0;
    int32_t lastOrder = 0, lastRow = 0;
    Stopwatch timer;
};

enum class RenderResult { Done, WriteFailed, TooLong };

// Renders until the song ends, writing each block as it comes.
RenderResult renderInto(AudioFile& wav, mod::ModulePlayer& player, RenderProgress& progress) {
    static_assert(Channels * sizeof(int16_t) == 4, "MaxDataBytes / 4 frames fit the WAV sizes");
    int16_t block[BlockFrames * Channels];
    int64_t frames = 0;
    for (;;) {
        int32_t order = player.orderPosition(), row = player.row();
        int32_t rendered = player.render(block, BlockFrames);
        if (rendered <= 0)
            break;
        if ((frames + rendered) * 4 > MaxDataBytes)
            return RenderResult::TooLong;
        uint32_t written = 0;
        if (!wav.write(block, rendered, Channels, written, Int16) || written != uint32_t(rendered))
            return RenderResult::WriteFailed;
        frames += rendered;
        progress.update(order, row, frames);
    }
    progress.finish(frames);
    return RenderResult::Done;
}

bool reportWriteFailure(const String& name) {
    std::fprintf(stderr, "failed to write %s\n", name.c_str());
    return false;
}

}  // namespace

bool renderModuleCommand(const mod::Module& module, const ModOptions& options) {
    mod::ModulePlayer player;
    mod::PlayerSettings playerSettings;
    playerSettings.sampleRate = options.sampleRate;
    playerSettings.channels = Channels;
    if (!player.start(module, options.subsong, playerSettings)) {
        std::fprintf(stderr, "failed to start the player at %u Hz\n", unsigned(options.sampleRate));
        return false;
    }
    player.setLooping(false);

    const String& name = options.outputName;
    FileStream output(name, FileWrite | FileCreate | FileTruncate, 7);
    if (!output.isOpen()) {
        std::fprintf(stderr, "failed to create: %s\n", name.c_str());
        return false;
    }
    BufferedStream buffered(&output, WriteBufferBytes);
    AudioFile wav;
    if (!wav.create(&buffered, Int16, options.sampleRate, Channels, WavePcm))
        return reportWriteFailure(name);
    RenderProgress progress(options.verbose, options.sampleRate);
    switch (renderInto(wav, player, progress)) {
    case RenderResult::WriteFailed:
        return reportWriteFailure(name);
    case RenderResult::TooLong:
        std::fprintf(stderr, "song too long for a WAV file: %s\n", name.c_str());
        return false;
    case RenderResult::Done:
        break;
    }
    // close() patches the sizes into the header and flushes the buffer.
    if (!wav.close() || !output.close())
        return reportWriteFailure(name);
    return true;
}
