// Configuration files: loading, looking up, writing back, against the parsers that people would pick instead. All read
// the same file, answer the same questions, and free what they made. Numbers are settings in the file.
#include <INIReader.h>
#define SI_NO_CONVERSION
#include <SimpleIni.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/mman.h>
#include <unistd.h>
#include <velkor/configuration.h>

#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

// ---- The file ----

constexpr int SETTINGS_IN_SECTION = 12;

struct Question {
    std::string section;
    std::string name;

    std::string key() const { return section + ":" + name; }
    std::string path() const { return section + "." + name; }
};

// A recorder's file: sections of a dozen settings, a comment above each section, a blank line behind it.
struct Sample {
    std::string content;
    std::vector<Question> questions;
    std::string path;

    explicit Sample(int settings) {
        static constexpr const char *NAMES[] = {"Enable",     "IPAddress",     "SubnetMask", "DefaultGateway",
                                                "HttpPort",   "UserName",      "BitRate",    "FrameRate",
                                                "Resolution", "EncodeProfile", "StreamType", "Description"};
        for (int i = 0; i < settings; ++i) {
            const int number = i / SETTINGS_IN_SECTION;
            const std::string section = "VideoChannel" + std::to_string(number);
            if (i % SETTINGS_IN_SECTION == 0) {
                content += (i == 0 ? "# the camera at input " : "\n# the camera at input ") + std::to_string(number) +
                           "\n[" + section + "]\n";
            }
            const std::string name = NAMES[i % SETTINGS_IN_SECTION];
            content += name + " = " + std::to_string(i) + ".168.1.10\n";
            questions.push_back({section, name});
        }
        const int descriptor = memfd_create("ini", 0);
        if (write(descriptor, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
            abort();
        }
        path = "/proc/self/fd/" + std::to_string(descriptor);
    }
};

const Sample &sample(benchmark::State &state) {
    static std::map<int64_t, std::unique_ptr<Sample>> samples;
    auto &found = samples[state.range(0)];
    if (!found) {
        found = std::make_unique<Sample>(static_cast<int>(state.range(0)));
    }
    return *found;
}

void require(benchmark::State &state, bool good) {
    if (!good) {
        state.SkipWithError("wrong answer");
    }
}

struct Freed {
    void operator()(dictionary *d) const { iniparser_freedict(d); }
    void operator()(GKeyFile *file) const { g_key_file_free(file); }
};
using Dictionary = std::unique_ptr<dictionary, Freed>;
using KeyFile = std::unique_ptr<GKeyFile, Freed>;

KeyFile load_key_file(const Sample &file) {
    KeyFile loaded(g_key_file_new());
    g_key_file_load_from_file(loaded.get(), file.path.c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr);
    return loaded;
}

void load_simple_ini(CSimpleIniA &loaded, const Sample &file) { loaded.LoadFile(file.path.c_str()); }

// ---- Loading ----

void velkor_load(benchmark::State &state) {
    const Sample &file = sample(state);
    for ([[maybe_unused]] auto pass : state) {
        const Dictionary loaded(iniparser_load(file.path.c_str()));
        benchmark::DoNotOptimize(loaded.get());
    }
}

void inih_load(benchmark::State &state) {
    const Sample &file = sample(state);
    for ([[maybe_unused]] auto pass : state) {
        const INIReader loaded(file.path);
        benchmark::DoNotOptimize(loaded.ParseError());
    }
}

void simple_ini_load(benchmark::State &state) {
    const Sample &file = sample(state);
    for ([[maybe_unused]] auto pass : state) {
        CSimpleIniA loaded;
        load_simple_ini(loaded, file);
        benchmark::DoNotOptimize(loaded.IsEmpty());
    }
}

void key_file_load(benchmark::State &state) {
    const Sample &file = sample(state);
    for ([[maybe_unused]] auto pass : state) {
        const KeyFile loaded = load_key_file(file);
        benchmark::DoNotOptimize(loaded.get());
    }
}

void property_tree_load(benchmark::State &state) {
    const Sample &file = sample(state);
    for ([[maybe_unused]] auto pass : state) {
        boost::property_tree::ptree loaded;
        boost::property_tree::ini_parser::read_ini(file.path, loaded);
        benchmark::DoNotOptimize(loaded.size());
    }
}

// ---- Looking up a setting that is there ----
//
// Each is asked in its own way, with names made beforehand; all settings in turn, in an order that no cache likes.

template <typename Ask>
void ask_all(benchmark::State &state, const std::vector<Question> &questions, Ask ask) {
    std::vector<size_t> order(questions.size());
    for (size_t i = 0; i < order.size(); ++i) {
        order[i] = i * 7919 % order.size();
    }
    size_t i = 0;
    for ([[maybe_unused]] auto pass : state) {
        ask(order[i]);
        i = i + 1 == order.size() ? 0 : i + 1;
    }
}

template <typename Make>
std::vector<std::string> all(const std::vector<Question> &questions, Make make) {
    std::vector<std::string> result;
    for (const Question &question : questions) {
        result.push_back((question.*make)());
    }
    return result;
}

void velkor_hit(benchmark::State &state) {
    const Sample &file = sample(state);
    const Dictionary loaded(iniparser_load(file.path.c_str()));
    const std::vector<std::string> keys = all(file.questions, &Question::key);
    require(state, std::string(iniparser_getstring(loaded.get(), keys.front().c_str(), "")) == "0.168.1.10");
    ask_all(state, file.questions,
            [&](size_t i) { benchmark::DoNotOptimize(iniparser_getstring(loaded.get(), keys[i].c_str(), nullptr)); });
}

void inih_hit(benchmark::State &state) {
    const Sample &file = sample(state);
    const INIReader loaded(file.path);
    require(state, loaded.Get("VideoChannel0", "Enable", "") == "0.168.1.10");
    ask_all(state, file.questions, [&](size_t i) {
        benchmark::DoNotOptimize(loaded.Get(file.questions[i].section, file.questions[i].name, ""));
    });
}

void simple_ini_hit(benchmark::State &state) {
    const Sample &file = sample(state);
    CSimpleIniA loaded;
    load_simple_ini(loaded, file);
    require(state, std::string(loaded.GetValue("VideoChannel0", "Enable", "")) == "0.168.1.10");
    ask_all(state, file.questions, [&](size_t i) {
        benchmark::DoNotOptimize(
            loaded.GetValue(file.questions[i].section.c_str(), file.questions[i].name.c_str(), nullptr));
    });
}

void key_file_hit(benchmark::State &state) {
    const Sample &file = sample(state);
    const KeyFile loaded = load_key_file(file);
    const auto ask = [&](const Question &question) {
        return g_key_file_get_value(loaded.get(), question.section.c_str(), question.name.c_str(), nullptr);
    };
    char *const first = ask(file.questions.front());
    require(state, std::string(first) == "0.168.1.10");
    g_free(first);
    ask_all(state, file.questions, [&](size_t i) {
        char *const value = ask(file.questions[i]);
        benchmark::DoNotOptimize(value);
        g_free(value);
    });
}

void property_tree_hit(benchmark::State &state) {
    const Sample &file = sample(state);
    boost::property_tree::ptree loaded;
    boost::property_tree::ini_parser::read_ini(file.path, loaded);
    const std::vector<std::string> paths = all(file.questions, &Question::path);
    require(state, loaded.get<std::string>(paths.front(), "") == "0.168.1.10");
    ask_all(state, file.questions,
            [&](size_t i) { benchmark::DoNotOptimize(loaded.get_optional<std::string>(paths[i])); });
}

// ---- Looking up a setting that is not there, in a section that is ----

std::vector<Question> absent(const Sample &file) {
    std::vector<Question> questions = file.questions;
    for (Question &question : questions) {
        question.name += "_x";
    }
    return questions;
}

void velkor_miss(benchmark::State &state) {
    const Sample &file = sample(state);
    const Dictionary loaded(iniparser_load(file.path.c_str()));
    const std::vector<std::string> keys = all(absent(file), &Question::key);
    require(state, iniparser_getstr(loaded.get(), keys.front().c_str()) == nullptr);
    ask_all(state, file.questions,
            [&](size_t i) { benchmark::DoNotOptimize(iniparser_getstring(loaded.get(), keys[i].c_str(), nullptr)); });
}

void inih_miss(benchmark::State &state) {
    const Sample &file = sample(state);
    const INIReader loaded(file.path);
    const std::vector<Question> questions = absent(file);
    ask_all(state, questions,
            [&](size_t i) { benchmark::DoNotOptimize(loaded.Get(questions[i].section, questions[i].name, "")); });
}

void simple_ini_miss(benchmark::State &state) {
    const Sample &file = sample(state);
    CSimpleIniA loaded;
    load_simple_ini(loaded, file);
    const std::vector<Question> questions = absent(file);
    ask_all(state, questions, [&](size_t i) {
        benchmark::DoNotOptimize(loaded.GetValue(questions[i].section.c_str(), questions[i].name.c_str(), nullptr));
    });
}

void key_file_miss(benchmark::State &state) {
    const Sample &file = sample(state);
    const KeyFile loaded = load_key_file(file);
    const std::vector<Question> questions = absent(file);
    ask_all(state, questions, [&](size_t i) {
        benchmark::DoNotOptimize(
            g_key_file_get_value(loaded.get(), questions[i].section.c_str(), questions[i].name.c_str(), nullptr));
    });
}

void property_tree_miss(benchmark::State &state) {
    const Sample &file = sample(state);
    boost::property_tree::ptree loaded;
    boost::property_tree::ini_parser::read_ini(file.path, loaded);
    const std::vector<std::string> paths = all(absent(file), &Question::path);
    ask_all(state, file.questions,
            [&](size_t i) { benchmark::DoNotOptimize(loaded.get_optional<std::string>(paths[i])); });
}

// ---- Writing back, into a file in memory ----

class Sink {
public:
    Sink() : stream_(fdopen(memfd_create("out", 0), "w+")) {}
    ~Sink() { fclose(stream_); }
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;

    FILE *get() const { return stream_; }

    template <typename Write>
    void fill(Write write) const {
        rewind(stream_);
        write();
        fflush(stream_);
    }

private:
    FILE *stream_;
};

void velkor_write_back(benchmark::State &state) {
    const Dictionary loaded(iniparser_load(sample(state).path.c_str()));
    const Sink sink;
    for ([[maybe_unused]] auto pass : state) {
        sink.fill([&] { iniparser_dump_ini(loaded.get(), sink.get()); });
    }
}

void simple_ini_write_back(benchmark::State &state) {
    CSimpleIniA loaded;
    load_simple_ini(loaded, sample(state));
    const Sink sink;
    for ([[maybe_unused]] auto pass : state) {
        sink.fill([&] { loaded.SaveFile(sink.get()); });
    }
}

void key_file_write_back(benchmark::State &state) {
    const KeyFile loaded = load_key_file(sample(state));
    const Sink sink;
    for ([[maybe_unused]] auto pass : state) {
        sink.fill([&] {
            gsize length = 0;
            char *const text = g_key_file_to_data(loaded.get(), &length, nullptr);
            fwrite(text, 1, length, sink.get());
            g_free(text);
        });
    }
}

void property_tree_write_back(benchmark::State &state) {
    boost::property_tree::ptree loaded;
    boost::property_tree::ini_parser::read_ini(sample(state).path, loaded);
    const Sink sink;
    for ([[maybe_unused]] auto pass : state) {
        sink.fill([&] {
            std::ostringstream text;
            boost::property_tree::ini_parser::write_ini(text, loaded);
            fwrite(text.str().data(), 1, text.str().size(), sink.get());
        });
    }
}

// ---- The dictionary alone, against the standard hash map: both are asked with a C string ----

void velkor_dictionary_hit(benchmark::State &state) {
    const Sample &file = sample(state);
    const std::vector<std::string> keys = all(file.questions, &Question::key);
    dictionary *const d = dictionary_new(0);
    for (const std::string &key : keys) {
        dictionary_add(d, key.c_str(), "192.168.1.10");
    }
    ask_all(state, file.questions,
            [&](size_t i) { benchmark::DoNotOptimize(dictionary_get(d, keys[i].c_str(), nullptr)); });
    dictionary_del(d);
}

void unordered_map_hit(benchmark::State &state) {
    const Sample &file = sample(state);
    const std::vector<std::string> keys = all(file.questions, &Question::key);
    std::unordered_map<std::string, std::string> map;
    for (const std::string &key : keys) {
        map.emplace(key, "192.168.1.10");
    }
    ask_all(state, file.questions, [&](size_t i) { benchmark::DoNotOptimize(map.find(keys[i].c_str())); });
}

void sizes(benchmark::internal::Benchmark *benchmark) {
    for (const int settings : {10, 300, 3000, 30000}) {
        benchmark->Arg(settings);
    }
}

BENCHMARK(velkor_load)->Name("IniLoad/velkor")->Apply(sizes);
BENCHMARK(inih_load)->Name("IniLoad/inih")->Apply(sizes);
BENCHMARK(simple_ini_load)->Name("IniLoad/simpleini")->Apply(sizes);
BENCHMARK(key_file_load)->Name("IniLoad/gkeyfile")->Apply(sizes);
BENCHMARK(property_tree_load)->Name("IniLoad/property_tree")->Apply(sizes);
BENCHMARK(velkor_hit)->Name("IniHit/velkor")->Apply(sizes);
BENCHMARK(inih_hit)->Name("IniHit/inih")->Apply(sizes);
BENCHMARK(simple_ini_hit)->Name("IniHit/simpleini")->Apply(sizes);
BENCHMARK(key_file_hit)->Name("IniHit/gkeyfile")->Apply(sizes);
BENCHMARK(property_tree_hit)->Name("IniHit/property_tree")->Apply(sizes);
BENCHMARK(velkor_miss)->Name("IniMiss/velkor")->Apply(sizes);
BENCHMARK(inih_miss)->Name("IniMiss/inih")->Apply(sizes);
BENCHMARK(simple_ini_miss)->Name("IniMiss/simpleini")->Apply(sizes);
BENCHMARK(key_file_miss)->Name("IniMiss/gkeyfile")->Apply(sizes);
BENCHMARK(property_tree_miss)->Name("IniMiss/property_tree")->Apply(sizes);
BENCHMARK(velkor_write_back)->Name("IniWriteBack/velkor")->Apply(sizes);
BENCHMARK(simple_ini_write_back)->Name("IniWriteBack/simpleini")->Apply(sizes);
BENCHMARK(key_file_write_back)->Name("IniWriteBack/gkeyfile")->Apply(sizes);
BENCHMARK(property_tree_write_back)->Name("IniWriteBack/property_tree")->Apply(sizes);
BENCHMARK(velkor_dictionary_hit)->Name("DictionaryHit/velkor")->Apply(sizes);
BENCHMARK(unordered_map_hit)->Name("DictionaryHit/unordered_map")->Apply(sizes);

}  // namespace
