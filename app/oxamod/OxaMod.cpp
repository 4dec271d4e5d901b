// OxaMod: from the arguments to the exit status. -i reports and ends, unless
// -o asks for a render as well.
#include <cstdio>

#include "app/oxamod/ModCommands.h"
#include "app/oxamod/ModuleFile.h"
#include "app/oxamod/ModuleInfo.h"

namespace {

bool runOnModule(const mod::Module& module, const ModOptions& options) {
    int32_t subsongs = module.subsongs.count();
    if (options.subsong >= subsongs) {
        std::fprintf(stderr, "invalid sub-song: %d (%s has %d)\n", int(options.subsong),
                     options.inputName.c_str(), int(subsongs));
        return false;
    }
    if (options.showInfo) {
        if (!printModuleInfo(module)) {
            std::fprintf(stderr, "failed to write the module info\n");
            return false;
        }
        if (options.outputName.isEmpty())
            return true;
    }
    if (!options.outputName.isEmpty())
        return renderModuleCommand(module, options);
    return playModuleCommand(module, options);
}

}  // namespace

int runOxaMod(int argc, char** argv) {
    ModOptions options;
    switch (parseModOptions(argc, argv, options)) {
    case ParseOutcome::ShowUsage:
        printModUsage();
        return 0;
    case ParseOutcome::Failed:
        return 1;
    case ParseOutcome::Run:
        break;
    }
    mod::Module module;
    if (!loadModuleFile(options.inputName, module))
        return 1;
    return runOnModule(module, options) ? 0 : 1;
}
