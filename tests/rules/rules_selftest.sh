#!/usr/bin/env bash
# A rule that cannot fail is no rule: each one is shown a tree that breaks it, and one that keeps it.
#   rules_selftest.sh <folder of the rules>
set -u
rules=${1:?folder}/source_rules.sh
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failures=0

clean_tree()
{
    rm -rf "$tree"
    mkdir -p "$tree"/{base,u3v_wire,gentl,u3v,u3v_host,standard_tl,virtual_camera,client,docs}
    printf '#pragma once\n' | tee "$tree/u3v_wire/packets.h" >"$tree/u3v_wire/registers.h"
    printf '#pragma once\n' >"$tree/gentl/a.h"
    printf '#pragma once\n#include "zr_sync.h"\n' >"$tree/u3v_host/camera.h"
    printf '#pragma once\n#include "packets.h"\n#include <libusb.h>\n' >"$tree/u3v_host/hidden.h"
    printf '#include "camera.h"\n#include <zr_u3v_tl/gentl.h>\n' >"$tree/standard_tl/c.cpp"
    printf '#pragma once\n' >"$tree/base/zr_sync.h"
    printf '#pragma once\n' >"$tree/u3v/u3v_control.h"
    printf '#include "zr_sync.h"\n#include <zr_u3v_tl/gentl.h>\n// Quirk Q07: kept\nint a;\n' >"$tree/gentl/a.cpp"
    grep '^other_members' "$rules" >"$tree/gentl/members.h"
    printf 'bool m_isOpen, m_onClose, m_tlType;\n' >>"$tree/gentl/members.h"
    mkdir -p "$tree/tests"
    printf 'TEST_F(Module,\n       Open_Twice_IsRefused)\n{\n}\n' >"$tree/tests/a_test.cpp"
    mkdir -p "$tree/debian"
    printf 'project(zr_u3v_tl VERSION 7.8.9)\n' >"$tree/CMakeLists.txt"
    printf 'zr-u3v-tl (7.8.9) unstable; urgency=medium\n' >"$tree/debian/changelog"
    printf '# Changelog\n\n## 7.8.9\n' >"$tree/CHANGELOG.md"
    printf 'class ZR_CAPABILITY("mutex") Gate\n{\n    Mutex m_mutex;\n};\n' >"$tree/base/gate.h"
    printf 'class Outer final : public A\n{\n    struct Inner\n    {\n        RwLock lock;\n    };\n    mutable Mutex m_mutex; // one at a time\n};\n' >"$tree/u3v/b.h"
    printf 'class List::Part\n{\n    void Wait(Mutex& mutex);\n    RecursiveMutex m_mutex;\n};\n' >"$tree/u3v_host/list.cpp"
    printf '%s\n' '### Locks of the exact producer' '| 1 | `Outer::m_mutex` | `u3v/b.h` | a | plain |' \
        '| 2 | `Inner::lock` | `u3v/b.h` | b | readers |' '| 3 | `Gate::m_mutex` | `base/gate.h` | c | plain |' \
        '### Locks of the standard producer' '| 1 | `List::Part::m_mutex` | `u3v_host/list.cpp` | d | plain |' >"$tree/docs/threading.md"
    printf 'zr_test::LetPass(5ms, "nothing comes");\nsleep_until(then); // time: the camera says so\n' >"$tree/tests/b_test.cpp"
    printf 'until ready; do\n    sleep 0.1 # until: it is ready\ndone\n' >"$tree/tests/c.sh"
    printf '## Words\n\n| say | not |\n| fix | `mend` |\n| discard | `bury`, `throw away`, plain |\n| times out | `give up waiting` (always) |\n\n## Commits\n' >"$tree/docs/style.md"
    printf '# A page\n\nThe amended commendation of a plain thrower.\n' >"$tree/docs/page.md"
    printf '# Quirks\n\n## Q07 kept\n\nModule.Open_Twice_IsRefused\n' >"$tree/docs/quirks.md"
}

expect()
{
    local wanted=$1 rule=$2 what=$3
    if "$rules" "$rule" "$tree" >"$tree.out" 2>&1; then found=pass; else found=fail; fi
    if [ "$found" != "$wanted" ]; then
        echo "rule $rule, $what: expected $wanted, got $found"
        cat "$tree.out"
        failures=$((failures + 1))
    fi
    rm -f "$tree.out"
}

breaks()
{
    local rule=$1 what=$2 file=$3 text=$4
    clean_tree
    mkdir -p "$(dirname "$tree/$file")"
    printf '%b' "$text" >>"$tree/$file"
    expect fail "$rule" "$what"
}

clean_tree
for rule in includes words paths whitespace quirks quirk_marks quirk_tests kept member_names locks links version waits glossary; do expect pass "$rule" "clean tree"; done

breaks includes "gentl includes u3v" gentl/b.cpp '#include "u3v_control.h"\n'
breaks includes "modules include the control channel" u3v_tl/b.cpp '#include "u3v_control.h"\n'
breaks includes "virtual camera includes the library" virtual_camera/b.cpp '#include "zr_sync.h"\n'
breaks includes "client includes the flat interface" client/b.cpp '#include <zr_u3v_tl/u3v_lib.h>\n'
breaks includes "client includes a module" client/b.cpp '#  include "u3v_control.h"\n'
breaks includes "gentl includes libusb" gentl/b.cpp '#include <libusb-1.0/libusb.h>\n'
breaks includes "packets include a lock" u3v_wire/b.h '#include "zr_sync.h"\n'
breaks includes "packets include libusb" u3v_wire/b.h '#include <libusb.h>\n'
breaks includes "the copy rule includes a lock" info/b.cpp '#include "zr_sync.h"\n'
breaks includes "the archive reader includes a public header" archive/b.cpp '#include <zr_u3v_tl/gentl.h>\n'
breaks includes "the camera side knows GenTL" u3v_host/b.cpp '#include <zr_u3v_tl/gentl.h>\n'
breaks includes "the camera side includes the exact producer's" u3v_host/b.cpp '#include "u3v_control.h"\n'
breaks includes "an offered header brings libusb along" u3v_host/camera.h '#include <libusb.h>\n'
breaks includes "an offered header brings a hidden one along" u3v_host/camera.h '#include "hidden.h"\n'
breaks includes "the GenTL side includes libusb" standard_tl/b.cpp '#include <libusb.h>\n'
breaks includes "the GenTL side includes a hidden header" standard_tl/b.cpp '#include "hidden.h"\n'
breaks includes "the GenTL side includes registers of cameras" standard_tl/b.cpp '#include "registers.h"\n'
breaks includes "the GenTL side includes the exact producer's" standard_tl/b.cpp '#include "a.h"\n'
breaks includes "a module includes a library of the tool" u3v_tl/b.cpp '#include <nlohmann/json.hpp>\n'
breaks includes "the tool includes the library" zr_u3v_tool/b.cpp '#include "u3v_control.h"\n'
breaks includes "the tool includes the flat interface" zr_u3v_tool/b.cpp '#include <zr_u3v_tl/u3v_lib.h>\n'
breaks includes "the tool includes libusb" zr_u3v_tool/b.cpp '#include <libusb.h>\n'
breaks includes "the consumer includes the library" consumer/b.cpp '#include "zr_sync.h"\n'
breaks includes "the benchmark includes the library" bench/b.cpp '#include <u3v_control.h>\n'
breaks includes "relative include" gentl/b.cpp '#include "../base/zr_sync.h"\n'
breaks includes "a header's name twice" u3v/zr_sync.h '#pragma once\n'
clean_tree
printf '#pragma once\n' | tee "$tree/u3v/channel.h" >"$tree/u3v_host/channel.h"
printf '#include "channel.h"\n' | tee "$tree/u3v/c.cpp" >"$tree/u3v_host/c.cpp"
expect pass includes "a header's name twice, in rooms that nobody sees both of"
breaks words "a word" gentl/b.cpp '// as the s''pec says\n'
breaks words "a numbered chapter" docs/b.md 'see Par''t 3.1\n'
breaks words "a file name" "gentl/s""pec_reader.cpp" 'int b;\n'
breaks paths "a path of one machine" docs/b.md 'cd /hom''e/someone\n'
breaks whitespace "blank at the end" gentl/b.cpp 'int b; \n'
breaks whitespace "carriage return" gentl/b.cpp 'int b;\r\n'
breaks whitespace "no newline at the end" gentl/b.cpp 'int b;'
breaks quirks "marked, not in the ledger" gentl/b.cpp '// Quirk Q08: new\n'
breaks quirks "in the ledger, not marked" docs/quirks.md '## Q09 gone\n'
breaks quirks "a row that does not say who would break" docs/quirks.md '| Q08 | what | why | | `a.cpp` | A.B |\n'
breaks quirks "twice in the ledger" docs/quirks.md '## Q07 again\n'
breaks quirk_marks "a quirk on shared ground" u3v_wire/packets.h '// Quirk Q07: kept\n'
breaks quirk_marks "malformed mark" gentl/b.cpp '// Quirk: forgot the number\n'
breaks includes "tool includes the library" zr_u3v_tool/b.cpp '#include "zr_sync.h"\n'
breaks includes "tool includes the flat interface" zr_u3v_tool/b.cpp '#include <zr_u3v_tl/u3v_lib.h>\n'
breaks includes "tool includes libusb" zr_u3v_tool/b.cpp '#include <libusb-1.0/libusb.h>\n'
breaks kept "kept, and called" gentl/b.cpp 'int Old(int a); // kept\nint b = Old(Old(1));\n'
breaks member_names "a type letter" gentl/b.h 'bool m_bOpen;\n'
breaks member_names "two type letters" tests/b.h 'char* m_szName;\n'
breaks member_names "a capital letter" standard_tl/b.h 'Mutex m_Mutex;\n'
clean_tree
rm "$tree/gentl/members.h"
expect fail member_names "an exception that nothing needs"
breaks locks "a lock that no table has" u3v_host/b.h 'class New\n{\n    Mutex m_mutex;\n};\n'
breaks locks "a static one" standard_tl/b.cpp 'static RecursiveMutex g_mutex;\n'
breaks locks "one of the system's" logging/b.h 'class New\n{\n    pthread_mutex_t m_mutex;\n};\n'
breaks locks "one of the standard library's" gentl/b.h 'class New\n{\n    std::mutex m_mutex;\n};\n'
breaks locks "one behind a pointer" gentl/b.h 'class New\n{\n    std::unique_ptr<Mutex> m_mutex;\n};\n'
breaks locks "several" gentl/b.h 'class New\n{\n    Mutex m_mutex[2];\n};\n'
breaks locks "one on shared ground" base/b.h 'class New\n{\n    Mutex m_mutex;\n};\n'
breaks locks "a lock that is gone" docs/threading.md '| 2 | `Gone::m_mutex` | `u3v_host/list.cpp` | e | plain |\n'
breaks locks "a lock of the other producer" docs/threading.md '| 2 | `Outer::m_mutex` | `u3v/b.h` | e | plain |\n'
breaks locks "a place twice" docs/threading.md '| 1 | `Gate::m_mutex` | `base/gate.h` | e | plain |\n'
clean_tree
sed -i '/Gate/d' "$tree/docs/threading.md"
expect fail locks "a shared lock in no table"
clean_tree
rm "$tree/docs/threading.md"
expect fail locks "no page"
breaks links "a document that is gone" docs/b.md 'see [that](gone.md#there)\n'
breaks links "a picture that is gone" docs/b.md '<img src="pictures/gone.png">\n'
breaks glossary "a word in a page" docs/b.md 'It mends itself.\n'
breaks glossary "a word in a message" gentl/b.cpp 'const char* text = "Thrown away";\n'
breaks glossary "several words" docs/b.md 'and then gave up waiting for it\n'
breaks glossary "a form of one" docs/b.md 'It buries the buffer.\n'
breaks waits "a sleep" tests/b_test.cpp 'std::this_thread::sleep_for(1ms);\n'
breaks waits "another one" tests/b_test.cpp '    usleep(1000);\n'
breaks waits "one in C, and a comment that says nothing" tests/b.c '    nanosleep(&t, NULL); /* until: */\n'
breaks waits "one in a script" tests/b.sh 'start & sleep 1\n'
breaks waits "one in a program without ending" tests/vm/b 'while true; do sleep "$time"; done\n'
breaks waits "no reason" tests/b_test.cpp 'zr_test::LetPass(5ms, "");\n'
breaks version "a second place" gentl/b.cpp 'const char* v = "7.8.9";\n'
clean_tree
printf 'project(zr_u3v_tl VERSION 7.9.0)\n' >"$tree/CMakeLists.txt"
expect fail version "changelogs that have not come to it"
clean_tree
rm "$tree/CHANGELOG.md"
expect fail version "no changelog"
breaks quirk_tests "pinned by no test" docs/quirks.md 'Module.Close_Twice_IsRefused\n'

[ "$failures" -eq 0 ] || exit 1
echo "every rule bites"
