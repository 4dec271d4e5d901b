// ModulePlayerBench: renders sub-song 0 of every module in the shared corpus
// to its end, 44100 Hz stereo in 4096-frame calls, once per setting of
// interpolation and volume ramping (and once with the scalar loops only, to
// show what the vector loops bring), and reports x real time. Target: well
// over 1200 x real time with the defaults (linear interpolation, ramps),
// where the reference players manage about 500 and 780. Every pass is
// checked to stop at the length subsongDuration gives. Skipped when the
// corpus is absent.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/MemoryStream.h"
#include "modplayer/Mixer.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/ModulePlayer.h"

namespace {

constexpr uint32_t Rate = 44100;
constexpr int32_t CallFrames = 4096;

std::vector<uint8_t> readFile(const std::string& path) {
    std::vector<uint8_t> bytes;
    if (FILE* file = std::fopen(path.c_str(), "rb")) {
        for (int c; (c = std::fgetc(file)) != EOF;)
            bytes.push_back(uint8_t(c));
        std::fclose(file);
    }
    return bytes;
}

void renderModule(benchmark::State& state, const std::string& path, bool interpolate, bool ramp, bool vector) {
    mod::useVectorLoops(vector);
    std::vector<uint8_t> bytes = readFile(path);
    MemoryStream stream(bytes.data(), int32_t(bytes.size()));
    auto module = std::make_unique<mod::Module>();
    if (!mod::loadModule(*module, stream, mod::FormatAutomatic, 0)) {
        state.SkipWithError("does not load");
        return;
    }
    mod::PlayerSettings settings;
    settings.sampleRate = Rate;
    settings.interpolate = interpolate;
    settings.volumeRamp = ramp;
    double expectedFrames = mod::subsongDuration(*module, 0, Rate) * Rate;
    std::vector<int16_t> out(size_t(CallFrames) * 2);
    int64_t frames = 0;
    for (auto _ : state) {
        mod::ModulePlayer player;
        player.start(*module, 0, settings);
        frames = 0;
        for (int32_t n; (n = player.render(out.data(), CallFrames)) > 0;)
            frames += n;
        benchmark::DoNotOptimize(out.data());
    }
    if (std::fabs(double(frames) - expectedFrames) > 1.0) {
        state.SkipWithError("wrong length");
        return;
    }
    state.counters["x_real_time"] =
        benchmark::Counter(double(state.iterations()) * frames / Rate, benchmark::Counter::kIsRate);
}

// One benchmark per corpus module and setting, registered before main runs.
const bool registered = [] {
    std::filesystem::path corpus(OXA_CORPUS_DIR);
    std::error_code error;
    std::vector<std::string> paths;
    for (const char* folder : {"mod", "s3m", "xm"})
        for (const auto& entry : std::filesystem::directory_iterator(corpus / folder, error))
            if (entry.path().extension() == std::string(".") + folder)
                paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    if (paths.empty())
        benchmark::RegisterBenchmark("ModulePlayer/corpus_absent", [](benchmark::State& state) {
            state.SkipWithError("shared corpus not found at " OXA_CORPUS_DIR);
        });
    const struct { const char* name; bool interpolate, ramp, vector; } settings[] = {
        {"linear", true, true, true}, {"linear_noramp", true, false, true}, {"nearest", false, true, true},
        {"linear_scalar", true, true, false}};
    for (const auto& setting : settings)
        for (const std::string& path : paths) {
            std::string name = std::string("ModulePlayer/") + setting.name + "/" +
                               std::filesystem::path(path).filename().string();
            benchmark::RegisterBenchmark(name.c_str(), renderModule, path, setting.interpolate, setting.ramp,
                                         setting.vector)
                ->Unit(benchmark::kMillisecond);
        }
    return true;
}();

}  // namespace
