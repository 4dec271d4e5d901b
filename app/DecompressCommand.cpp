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

    // Without room for the samples nothing can be written.
    Array<int16_t> samples;
    if (!samples.resize(FramesPerStep * channels))
        return reportWriteFailure(outputName);
    for (;;) {
        uint32_t frames = 0;
        if (!decoder.decode(samples.data(), FramesPerStep, channels, Int16, frames)) {
            std::fprintf(stderr, "failed to read %s\n", inputName.c_str());
            return false;
        }
        if (frames == 0)
            break;
        uint32_t written = 0;
        if (!wav.write(samples.data(), int32_t(frames), written))
            return reportWriteFailure(outputName);
    }
    // A short stream is still all in the buffer here, header included: the
    // size patch, the flush and the close are where a full disk shows.
    if (!wav.close() || !finishOutput(buffered, output))
        return reportWriteFailure(outputName);
    if (settings.verbose) {
        uint32_t elapsed = timer.stop();
        int64_t inputBytes = input.size();
        int64_t outputBytes = fileSize(outputName);
        double ratio = outputBytes > 0 ? 100.0 * double(inputBytes) / double(outputBytes) : 0.0;
        printStatistics(ratio, inputBytes, decoder.duration(), "decompressed", elapsed);
    }
    return true;
}
