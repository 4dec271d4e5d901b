// Tests of the audio start-up and shutdown, the device holder and the null
// device.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "audio/Audio.h"
#include "audio/NullDevice.h"
#include "core/Log.h"
#include "modplayer/MixerTables.h"

namespace {

std::vector<std::string> logged;
void recordLog(const String& message) { logged.push_back(message.c_str()); }

struct CountedDevice : NullDevice {
    static inline int32_t destroyed = 0;
    ~CountedDevice() override { ++destroyed; }
};

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
    bool started = true;
    testing::internal::CaptureStderr();
    AudioDevice* device = openPlaybackDevice(holder);
    if (!device->isOpen())
        started = device->start(44100, 2, 0.05f);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_EQ(CountedDevice::destroyed, 1);  // the slot released what it held
    EXPECT_EQ(device, holder.get());
    if (device->isOpen())
        GTEST_SKIP() << "plughw:0,0 opened: a sound card is present";
    EXPECT_FALSE(started);
    EXPECT_TRUE(device->stop());
    EXPECT_EQ(printed, "");
}
