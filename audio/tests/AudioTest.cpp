// Tests of the audio start-up and shutdown, the device holder, the null
// device and the base device's default rendering.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Audio.h"
#include "Log.h"
#include "MixerTables.h"
#include "NullDevice.h"
#include "TestSupport.h"

namespace {

std::vector<std::string> logged;
void recordLog(const String& message) { logged.push_back(message.c_str()); }

struct CountedDevice : NullDevice {
    static inline int32_t destroyed = 0;
    ~CountedDevice() override { ++destroyed; }
};

// Runs `action` with standard error sent to a file; returns what it printed.
template <typename Action>
std::vector<uint8_t> standardErrorOf(Action action) {
    std::string path = temporaryDirectory() + "/stderr.txt";
    fflush(stderr);
    int saved = dup(2);
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, 2);
    close(file);
    action();
    fflush(stderr);
    dup2(saved, 2);
    close(saved);
    return readWholeFile(path);
}

}  // namespace

TEST(AudioTest, initAndShutdownActOnlyAtTheOutermostPair) {
    LogListener listener = LogListener::fromFunction(&recordLog);
    addLogListener(listener);
    logged.clear();
    audioInit();
    SharedRef<AudioDevice>* holder = audioDeviceHolder();
    ASSERT_NE(holder, nullptr);
    EXPECT_FALSE(*holder);
    EXPECT_EQ(signedByteToSample[1], 256);  // the mixer's tables are built
    EXPECT_EQ(squareRootCurve[4095], 16777215u);
    audioInit();
    EXPECT_EQ(audioDeviceHolder(), holder);
    EXPECT_EQ(logged, (std::vector<std::string>{"Audio initialized"}));

    *holder = new CountedDevice;
    CountedDevice::destroyed = 0;
    audioShutdown();
    EXPECT_EQ(CountedDevice::destroyed, 0);
    EXPECT_EQ(audioDeviceHolder(), holder);
    audioShutdown();
    EXPECT_EQ(CountedDevice::destroyed, 1);  // released with the holder
    EXPECT_EQ(audioDeviceHolder(), nullptr);
    EXPECT_EQ(logged, (std::vector<std::string>{"Audio initialized", "shutting down Audio"}));
    removeLogListener(listener);
}

// This machine has no sound card; where one exists the test has nothing to show.
TEST(AudioTest, missingSoundCardGivesASilentNullDevice) {
    SharedRef<AudioDevice> holder(new CountedDevice);
    CountedDevice::destroyed = 0;
    AudioDevice* device = nullptr;
    bool started = true;
    std::vector<uint8_t> printed = standardErrorOf([&] {
        device = openPlaybackDevice(holder);
        if (!device->isOpen())
            started = device->start(44100, 2, 0.05f);
    });
    EXPECT_EQ(CountedDevice::destroyed, 1);  // the slot released what it held
    EXPECT_EQ(device, holder.get());
    if (device->isOpen())
        GTEST_SKIP() << "plughw:0,0 opened: a sound card is present";
    EXPECT_FALSE(started);
    EXPECT_TRUE(device->stop());
    EXPECT_TRUE(device->getSettings().name.isEmpty());
    EXPECT_EQ(std::string(printed.begin(), printed.end()), "");
}

TEST(AudioTest, renderWithoutACallbackGivesSilence) {
    NullDevice device;
    DeviceSettings settings;
    settings.channels = 2;
    int16_t buffer[2 * 64 + 1];
    for (int16_t& sample : buffer)
        sample = 0x5555;
    int32_t afterCalls = 0;
    struct Counter {
        int32_t* calls;
        void count(int16_t*, uint32_t, const DeviceSettings&) { ++*calls; }
    } counter{&afterCalls};
    device.setAfterRender(RenderCallback::fromMethod<&Counter::count>(&counter));
    for (bool resetToEmpty : {false, true}) {
        if (resetToEmpty)
            device.setRenderCallback(RenderCallback());
        device.render(buffer, 64, settings);
        for (int i = 0; i < 2 * 64; ++i)
            ASSERT_EQ(buffer[i], 0) << i;
        EXPECT_EQ(buffer[2 * 64], 0x5555);  // exactly frames x channels samples
    }
    EXPECT_EQ(afterCalls, 2);
}
