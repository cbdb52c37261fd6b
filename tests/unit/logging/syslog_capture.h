#pragma once

#include <string>
#include <vector>

// What this program sent to the system log: the test binary's syslog takes the place of the C
// library's.
struct SyslogMessage
{
    int priority;
    std::string text;
};

std::vector<SyslogMessage> TakeSyslogMessages();
