// CompressCommand: a WAV file (or anything the sound source reads) into an
// Oxa file. Each failure prints its one line on the stream the command's
// contract names; a failure after the output is created leaves it behind.
#include <cstdio>

#include "app/CommandSupport.h"
#include "app/Commands.h"
#include "app/Settings.h"
#include "audio/SoundSource.h"
#include "codec/OxaCodec.h"
#include "core/Array.h"
#include "core/BufferedStream.h"
#include "core/FileStream.h"
#include "core/Stopwatch.h"

namespace {

constexpr int32_t FramesPerStep = 1024;

void echoSettings() {
    if (settings.qbits != 5)
        std::printf("using qbits: %d\n", settings.qbits);
    if (settings.athOffset != 0.0f)
        std::printf("using ATH ofs: %0.2lf dB\n", double(settings.athOffset));
    if (settings.windowSize != 2048)
        std::printf("using win size: %d\n", settings.windowSize);
}

// Reads the header of the finished file back for its duration.
float writtenDuration(const String& outputName) {
    FileStream written(outputName, FileRead, 7);
    OxaCodec reader;
    if (!written.isOpen() || !reader.openDecoder(&written))
        return 0.0f;
    return reader.duration();
}

}  // namespace

bool compressCommand() {
    Stopwatch timer;
    if (settings.verbose)
        timer.start();
    const String& inputName = settings.inputName;
    String outputName = outputNameFor("oxa");

    FileStream input, output;
    if (!openCommandFiles(input, output, outputName))
        return false;
    // Released in reverse: samples, source, codec, buffer, then the files.
    BufferedStream buffered(&output, 8192);
    OxaCodec codec;
    SoundSource source;
    if (!source.open(&input)) {
        std::printf("failed to open input: %s\n", inputName.c_str());
        return false;
    }
    const int32_t channels = source.channels();
    source.setLooping(false);
    source.setOutputFormat(Int16, channels);
    source.setOutputRate(source.sampleRate());
    source.selectResampler(true);
    source.setResamplerOption(0, 0);

    if (!codec.openEncoder(&buffered, Int16, source.sampleRate(), channels, settings.qbits,
                           settings.windowSize & 0xFFFF, settings.athOffset)) {
        std::printf("failed to create output: %s\n", outputName.c_str());
        return false;
    }
    if (settings.verbose)
        echoSettings();

    // Without room for the samples nothing can be written.
    Array<int16_t> samples;
    if (!samples.resize(FramesPerStep * channels))
        return reportWriteFailure(outputName);
    for (;;) {
        uint32_t framesRead = 0;
        if (!source.read(samples.data(), FramesPerStep, framesRead)) {
            std::fprintf(stderr, "failed to read %s\n", inputName.c_str());
            return false;
        }
        if (framesRead == 0)
            break;
        if (!codec.encode(samples.data(), int32_t(framesRead), channels, Int16))
            return reportWriteFailure(outputName);
    }
    // Most of the payload reaches the file only when the encoder closes, so a
    // full disk shows up here: it is reported as the write failure it is.
    if (!codec.close() || !finishOutput(buffered, output))
        return reportWriteFailure(outputName);
    if (!settings.verbose)
        return true;

    uint32_t elapsed = timer.stop();
    int64_t inputBytes = input.size();
    int64_t outputBytes = fileSize(outputName);
    double ratio = inputBytes > 0 ? 100.0 * double(outputBytes) / double(inputBytes) : 0.0;
    printStatistics(ratio, outputBytes, writtenDuration(outputName), "compressed", elapsed);
    return true;
}
