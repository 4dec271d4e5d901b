// Start-up, shutdown, the log dispatcher and fatal exits.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "core/ClassInfo.h"
#include "core/Core.h"
#include "core/Log.h"
#include "core/Object.h"
#include "core/tests/support/TestSupport.h"

namespace {

struct Recorder {
    std::vector<std::string> messages;
    void hear(const String& message) { messages.push_back(message.c_str()); }
};

void printToStandardError(const String& message) { std::fprintf(stderr, "%s\n", message.c_str()); }

Object* leakedObject = nullptr;  // reachable, so the leak checker stays quiet

}  // namespace

TEST(CoreTest, nestedInitAndShutdownDoNothing) {
    Recorder recorder;
    LogListener listener = LogListener::fromMethod<&Recorder::hear>(&recorder);
    ASSERT_TRUE(addLogListener(listener));
    coreInit();
    coreShutdown();
    EXPECT_TRUE(recorder.messages.empty());
    EXPECT_NE(logDispatcher(), nullptr);
    EXPECT_TRUE(removeLogListener(listener));
}

TEST(CoreTest, listenersAreCalledOnceInOrderOfRegistration) {
    Recorder first, second;
    LogListener a = LogListener::fromMethod<&Recorder::hear>(&first);
    LogListener b = LogListener::fromMethod<&Recorder::hear>(&second);
    EXPECT_TRUE(addLogListener(a));
    EXPECT_FALSE(addLogListener(a));
    EXPECT_TRUE(addLogListener(b));
    logf("value %d", 42);
    EXPECT_EQ(first.messages, std::vector<std::string>{"value 42"});
    EXPECT_EQ(second.messages, std::vector<std::string>{"value 42"});
    EXPECT_TRUE(removeLogListener(a));
    EXPECT_FALSE(removeLogListener(a));
    logMessage("only b");
    EXPECT_EQ(first.messages.size(), 1u);
    EXPECT_EQ(second.messages.back(), "only b");
    EXPECT_TRUE(removeLogListener(b));
}

TEST(CoreTest, runtimeFactsAfterStartUp) {
    EXPECT_GT(physicalCores(), 0u);
    EXPECT_EQ(physicalCores(), logicalCores());
    EXPECT_TRUE(exeDir().endsWith("/")) << exeDir().c_str();
    EXPECT_EQ(exeDir(), baseDir());
    EXPECT_EQ(codePageForLocale("pl_PL.1250"), 5u);
    EXPECT_EQ(codePageForLocale("en_US.1252"), 4u);
    EXPECT_EQ(codePageForLocale("C"), 1u);
    EXPECT_EQ(codePageForLocale(nullptr), 1u);
    EXPECT_EQ(codePage(), 1u);
}

TEST(CoreTest, builtInClassesAreRegisteredWithTheirProperties) {
    ClassRegistry* registry = classRegistry();
    ASSERT_NE(registry, nullptr);
    for (const char* name : {"Core::Object", "Core.TreeItem", "Core.PackageObject", "Core.Package"})
        EXPECT_NE(registry->find(name), nullptr) << name;
    ClassInfo* package = registry->find("Core.Package");
    EXPECT_TRUE(package->isA(registry->find("Core::Object")));
    EXPECT_STREQ(package->dump().c_str(),
                 "\tname : name {ofs=0 align=8 size=8}\n"
                 "\towner : ptr<Core.Package> {ofs=8 align=8 size=8}\n"
                 "\tobjects : array<ptr<Core.PackageObject>> {ofs=16 align=8 size=16}\n");
}

TEST(CoreTest, packagesOwnTheirObjects) {
    int32_t before = Object::liveObjects();
    {
        Package package("sounds");
        package.adopt(new PackageObject("a"));
        package.adopt(new PackageObject("b"));
        EXPECT_EQ(package.find("b")->owner, &package);
        EXPECT_EQ(Object::liveObjects(), before + 3);
    }
    EXPECT_EQ(Object::liveObjects(), before);
}

TEST(CoreDeathTest, leakedObjectEndsShutdownWithStatusOne) {
    EXPECT_EXIT(
        {
            addLogListener(LogListener::fromFunction(printToStandardError));
            leakedObject = new Object;
            coreShutdown();
        },
        testing::ExitedWithCode(1), "Object heap contains live blocks!");
}

TEST(CoreDeathTest, assertionFailureNamesExpressionLineAndFile) {
    EXPECT_EXIT(
        {
            addLogListener(LogListener::fromFunction(printToStandardError));
            assertFailed("x > 0", "thing.cpp", 12, 1);
        },
        testing::ExitedWithCode(1), "Assertion failed: x > 0 at line 12 in file thing.cpp");
    EXPECT_EXIT(fatalExit("unheard", 3), testing::ExitedWithCode(3), "");
}

TEST(CoreDeathTest, logFileReceivesEveryMessageOnItsOwnLine) {
    std::string path = std::string(exeDir().c_str()) + "core-test.log";
    std::remove(path.c_str());
    EXPECT_EXIT(
        {
            coreShutdown();
            coreInit("core-test.log");
            logMessage("first");
            coreShutdown();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    std::vector<uint8_t> bytes = readWholeFile(path);
    std::string text(bytes.begin(), bytes.end());
    EXPECT_EQ(text.rfind("Core initialized\n", 0), 0u) << text;
    EXPECT_NE(text.find("Number of logical cores: "), std::string::npos);
    EXPECT_NE(text.find("\nfirst\nshutting down Core\n"), std::string::npos) << text;
    std::remove(path.c_str());
}
