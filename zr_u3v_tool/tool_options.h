#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The command line, parsed. One record for all commands: a member belongs to the commands that its
// comment names.
struct Options
{
    std::string command;

    // every command
    std::string producer; // a file or a folder; empty: found by name
    bool exact = false;   // the exact producer instead of the standard one
    std::string camera;
    uint64_t discovery_ms = 0; // never 0 behind the parser
    bool isVirtual = false;
    std::vector<std::string> virtualCameras;
    bool json = false;
    bool quiet = false;
    bool verbose = false;

    // xml, read, write, features, get, set, exec
    std::string port = "camera";
    // xml
    bool unzip = false;
    bool onlyUrl = false;
    bool overwrite = false;
    // xml, grab, view
    std::string output;
    // read, write
    std::string address;
    std::vector<std::string> addresses;
    std::string value;
    std::string type;
    uint64_t length = 0;

    // features
    std::string pattern;
    std::string visibility = "expert";
    // get, exec: names; set: NAME=VALUE
    std::vector<std::string> names;

    // grab, bench, view
    uint64_t images = 0;
    std::vector<std::string> settings; // NAME=VALUE, made before
    std::string trigger;               // "software", or empty
    uint64_t buffers = 8;
    uint64_t timeout_ms = 5000;
    // grab
    std::string format;
    bool noDemosaic = false;
    bool reduceTo8 = false;
    uint64_t skip = 0;
    bool strict = false; // bench too
    // view
    bool inTerminal = false;
    unsigned columns = 0;
    // doctor
    std::string root = "/";
    bool printRule = false;
};
