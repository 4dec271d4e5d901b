// DecompressCommand: an Oxa stream into a 16-bit PCM WAV file. A WAV header
// that cannot be written is reported and the decoding carries on all the
// same, deliberately.
#include <cstdio>

#include "app/CommandSupport.h"
#include "app/Commands.h"
#include "app/Settings.h"
#include "audio/WaveSink.h"
#include "codec/OxaCodec.h"
#include "core/Array.h"
#include "core/BufferedStream.h"
#include "core/FileStream.h"
#include "core/Stopwatch.h"

namespace {
constexpr int32_t FramesPerStep = 1024;
}

bool decompressCommand() {
    Stopwatch timer;
    if (settings.verbose)
        timer.start();
    const String& inputName = settings.inputName;
    String outputName = outputNameFor("wav");

    FileStream input, output;
    if (!openCommandFiles(input, output, outputName))
        return false;
    // Released in reverse: samples, the WAV file (sizes written), the
    // decoder, the buffer, then the files.
    BufferedStream buffered(&output, 8192);
    OxaCodec decoder;
    if (!decoder.openDecoder(&input)) {
        std::printf("failed to open input: %s\n", inputName.c_str());
        return false;
    }
    const int32_t channels = decoder.channels();
    WaveSink wav;
    wav.setInputFormat(decoder.sampleRate(), Int16, channels);
    if (!wav.create(&buffered, Int16, decoder.sampleRate(), channels, 1))
        std::printf("failed to create output: %s\n", outputName.c_str());

    Array<int16_t> samples;
    samples.resize(FramesPerStep * channels);
    for (;;) {
        uint32_t frames = 0;
        if (!decoder.decode(samples.data(), FramesPerStep, channels, Int16, frames)) {
            std::fprintf(stderr, "failed to read %s\n", inputName.c_str());
            return false;
        }
        if (frames == 0)
            break;
        uint32_t written = 0;
        if (!wav.write(samples.data(), int32_t(frames), written)) {
            std::fprintf(stderr, "failed to write %s\n", outputName.c_str());
            return false;
        }
    }
    if (settings.verbose) {
        buffered.flush();
        uint32_t elapsed = timer.stop();
        int64_t inputBytes = input.size();
        int64_t outputBytes = output.size();
        double ratio = outputBytes > 0 ? 100.0 * double(inputBytes) / double(outputBytes) : 0.0;
        printStatistics(ratio, inputBytes, decoder.duration(), "decompressed", elapsed);
    }
    return true;
}
