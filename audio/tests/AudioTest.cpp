// Tests of the audio start-up and shutdown, the device holder and the null
// device that stands in for a missing sound card.
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

    // Opening the device releases what the slot held. Without a sound card
    // the null device stands in, silent, never started, printing nothing.
    *holder = new CountedDevice;
    CountedDevice::destroyed = 0;
    testing::internal::CaptureStderr();
    AudioDevice* device = openPlaybackDevice(*holder);
    EXPECT_EQ(CountedDevice::destroyed, 1);
    EXPECT_EQ(device, holder->get());
    if (!device->isOpen()) {
        EXPECT_FALSE(device->start(44100, 2, 0.05f));
        EXPECT_TRUE(device->stop());
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

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
