// The recorder: its parts, in the order in which they begin to work.
#pragma once

#include <array>
#include <vector>

#include "archive.h"
#include "clock.h"
#include "commands.h"
#include "encoder.h"
#include "fault.h"
#include "load.h"
#include "log.h"
#include "messages.h"
#include "names.h"
#include "network.h"
#include "settings.h"
#include "snapshots.h"
#include "timers.h"

namespace recorder {

struct Recorder {
    Commands commands;  // forks the runner, while there is one thread and little to copy
    Log log;
    Encoder encoder;
    Timers timers;
    Snapshots snapshots;
    Settings settings;
    Archive archive;
    Network network;
    Names names;
    WallClock clock;
    Load load;
    Messages messages;

    // What comes later uses what is before it, and is ended before it.
    const std::array<Subsystem *, 12> parts = {&log,     &commands, &encoder, &timers, &snapshots, &settings,
                                               &archive, &network,  &names,   &clock,  &load,      &messages};

    bool is_ready() const { return commands.is_ready() && log.is_ready(); }
    void start();
    // Ends every thread, and looks whether all is as it should be.
    void finish();
};

// The kinds of trouble that can be asked for.
std::vector<Fault> faults_of(Recorder &recorder);

}  // namespace recorder
