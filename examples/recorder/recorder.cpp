#include "recorder.h"

#include <signal.h>
#include <velkor/process.h>

#include <algorithm>

#include "place.h"

namespace recorder {

void Recorder::start() {
    for (Subsystem *const part : parts) {
        part->prepare();
    }
    for (Subsystem *const part : parts) {
        part->start();
    }
}

void Recorder::finish() {
    for (Subsystem *const part : parts) {
        part->stop();
    }
    for (Subsystem *const part : parts) {
        part->join();
    }
    std::for_each(parts.rbegin(), parts.rend(), [](Subsystem *part) { part->conclude(); });
}

namespace {

// By this process itself: the runner may be what there is trouble with.
bool run(const char *command) {
    FILE *const stream = vk_popen(command, "r");
    return stream != nullptr && vk_pclose(stream) == 0;
}

}  // namespace

std::vector<Fault> faults_of(Recorder &recorder) {
    Commands &commands = recorder.commands;
    Archive &archive = recorder.archive;
    Network &network = recorder.network;
    Names &names = recorder.names;
    Encoder &encoder = recorder.encoder;
    Snapshots &snapshots = recorder.snapshots;

    return {
        {
            .kind = "runner",
            .trouble = "the runner process is killed in the midst of a command",
            .notice = "the command is given up, and another runner is forked",
            .recovery = "commands are answered again",
            .make =
                [&commands] {
                    return eventually([&commands] { return commands.is_waiting(); }) &&
                           kill(commands.runner(), SIGKILL) == 0;
                },
            .is_noticed = [&commands] { return commands.restarts() > 0; },
            .is_recovered = [&commands] { return commands.answers_since_restart() > 3; },
        },
        {
            .kind = "disk",
            .trouble = "the disk is filled with old recordings",
            .notice = "a copy fails, and the oldest are removed",
            .recovery = "recordings are copied again",
            .make = [&archive] { return archive.fill_disk(); },
            .is_noticed = [&archive] { return archive.found_full() > 0; },
            .is_recovered = [&archive] { return archive.copied_since_full() > 0; },
        },
        {
            .kind = "link",
            .trouble = "the second host's cable is pulled",
            .notice = "the loss of the link is seen",
            .relief = "the cable is plugged in",
            .recovery = "the second host answers again",
            .make = [] { return run(place::PULL_CABLE); },
            .is_noticed = [&network] { return network.has_seen_loss(); },
            .end =
                [&network] {
                    const bool is_plugged = run(place::PLUG_CABLE);
                    network.forget_answers();
                    return is_plugged;
                },
            .is_recovered = [&network] { return network.has_answer(); },
        },
        {
            .kind = "resolver",
            .trouble = "the name server hangs",
            .notice = "a lookup is given up in time",
            .relief = "the name server goes on",
            .recovery = "the name is resolved again",
            .make = [] { return run(place::HANG_NAME_SERVER); },
            .is_noticed = [&names] { return names.given_up() > 0; },
            .end =
                [&names] {
                    names.forget_answers();
                    return run(place::FREE_NAME_SERVER);
                },
            .is_recovered = [&names] { return names.has_answer(); },
        },
        {
            .kind = "pool",
            .trouble = "a memory pool is emptied, and 40 jobs come at once",
            .notice = "frames are dropped, and every job has a thread",
            .relief = "the memory comes back, and the jobs end",
            .recovery = "frames are made again, and every job is done",
            .make = [&snapshots] { return snapshots.call_crowd(); },
            .press = [&encoder] { encoder.hoard(); },
            .is_noticed = [&encoder,
                           &snapshots] { return encoder.dropped() > 0 && snapshots.crowd_begun() == Snapshots::CROWD; },
            .end =
                [&encoder, &snapshots] {
                    encoder.release_hoard();
                    snapshots.let_crowd_go();
                    return true;
                },
            .is_recovered =
                [&encoder, &snapshots] { return !encoder.is_troubled() && snapshots.crowd_done() == Snapshots::CROWD; },
        },
    };
}

}  // namespace recorder
