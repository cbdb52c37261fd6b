#!/usr/bin/env bash
# A small Debian system in a folder, from the packages of this machine and without any network:
#   clean_root.sh <folder> <package file>...
# It holds what the given packages depend on and a shell to use them, with dpkg's books, so that an installation there
# is checked as on a machine of its own; and nothing else of this machine.
set -eu
export LC_ALL=C

root=${1:?folder}
shift

exec python3 - "$root" "$@" <<'PYTHON'
import os, re, subprocess, sys
from pathlib import Path

root, files = Path(sys.argv[1]), sys.argv[2:]
BASE = ["base-files", "base-passwd", "bash", "coreutils", "dash", "diffutils", "dpkg", "findutils", "grep", "libc-bin", "sed"]
ADMIN = Path("/var/lib/dpkg/info")


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def fields_of_file(file):
    return run("dpkg-deb", "-f", file, "Depends").replace("\n", " ")


def installed():
    """Name to (name with architecture, what it depends on); provided names as well."""
    table = {}
    listing = run("dpkg-query", "-W", "-f",
                  "${db:Status-Status}\t${Package}\t${binary:Package}\t${Pre-Depends}, ${Depends}\t${Provides}\n")
    for line in listing.splitlines():
        status, name, full, depends, provides = line.split("\t")
        if status == "installed":
            table[name] = (full, depends)
            for provided in re.findall(r"[a-z0-9][a-z0-9+.-]+", re.sub(r"\([^)]*\)", "", provides)):
                table.setdefault(provided, (full, depends))
    return table


def closure(wanted, given, table):
    found, names = {}, list(wanted)
    while names:
        name = names.pop()
        if name in given or name in found:
            continue
        if name not in table:
            sys.exit(f"{name} is not installed here")
        found[name] = table[name][0]
        for alternatives in filter(str.strip, table[name][1].split(",")):
            choice = [re.match(r"\s*([a-z0-9][a-z0-9+.-]*)", one).group(1) for one in alternatives.split("|")]
            names.append(next((one for one in choice if one in table or one in given), choice[0]))
    return sorted(set(found.values()))


table = installed()
given = {Path(file).name.split("_")[0] for file in files}
wanted = list(BASE)
for file in files:
    if "-dbgsym_" not in file:
        for alternatives in filter(str.strip, fields_of_file(file).split(",")):
            wanted.append(re.match(r"\s*([a-z0-9][a-z0-9+.-]*)", alternatives).group(1))
packages = closure(wanted, given, table)

root.mkdir(parents=True)
for name in ("bin", "sbin", "lib", "lib64"):
    if Path("/", name).is_symlink():
        (root / "usr" / name).mkdir(parents=True, exist_ok=True)
        (root / name).symlink_to(f"usr/{name}")

paths = []
for package in packages:
    paths += [path for path in run("dpkg", "-L", package).splitlines() if path.startswith("/") and os.path.lexists(path)]
# A folder may be a link on this machine (merged /usr); it is made above, and everything else goes through it.
paths = [path for path in dict.fromkeys(paths) if path not in ("/.", "/bin", "/sbin", "/lib", "/lib64")]
pack = subprocess.Popen(["tar", "-C", "/", "--no-recursion", "--null", "-cf", "-", "-T", "-"],
                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
unpack = subprocess.Popen(["tar", "-C", str(root), "--keep-directory-symlink", "-xf", "-"], stdin=pack.stdout)
pack.stdin.write(b"".join(b"." + path.encode() + b"\0" for path in paths))
pack.stdin.close()
if pack.wait() != 0 or unpack.wait() != 0:
    sys.exit("the files could not be copied")

# dpkg's books: the state of each package, its lists and scripts.
info = root / "var/lib/dpkg/info"
info.mkdir(parents=True, exist_ok=True)
for folder in ("updates", "triggers", "alternatives", "parts"):
    (root / "var/lib/dpkg" / folder).mkdir(exist_ok=True)
(root / "var/lib/dpkg/available").touch()
status = ""
for package in packages:
    # Whatever this machine has still to do, the new one has not.
    stanza = re.sub(r"^Triggers-(Pending|Awaited):.*\n", "", run("dpkg-query", "-s", package), flags=re.M)
    status += re.sub(r"^Status:.*", "Status: install ok installed", stanza, flags=re.M) + "\n"
    for record in ADMIN.glob(f"{package}.*"):
        if not re.search(r"\.\w+$", record.name[len(package):]) or record.name.count(".") < 1:
            continue
        (info / record.name).write_bytes(record.read_bytes())
        (info / record.name).chmod(record.stat().st_mode & 0o777)
(info / "format").write_text((ADMIN / "format").read_text())
(root / "var/lib/dpkg/status").write_text(status)

# What scripts of a first installation would have made.
(root / "etc/profile").write_bytes((root / "usr/share/base-files/profile").read_bytes())
(root / "etc/passwd").write_text("root:x:0:0:root:/root:/bin/bash\nnewcomer:x:4711:4711::/tmp:/bin/bash\n")
(root / "etc/group").write_text("root:x:0:\nnewcomer:x:4711:\n")
(root / "bin/sh").exists() or (root / "bin/sh").symlink_to("dash")
for device, minor in (("null", 3), ("zero", 5), ("urandom", 9)):
    (root / "dev").mkdir(exist_ok=True)
    try:
        os.mknod(root / "dev" / device, 0o20666, os.makedev(1, minor))
        (root / "dev" / device).chmod(0o666)
    except PermissionError:
        (root / "dev" / device).touch()
(root / "dev/stderr").symlink_to("/proc/self/fd/2")
(root / "tmp").mkdir(exist_ok=True)
(root / "tmp").chmod(0o1777)
for name in ("log", "cache"):
    (root / "var" / name).mkdir(parents=True, exist_ok=True)
environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND": "noninteractive"}
subprocess.run(["chroot", str(root), "/sbin/ldconfig"], check=True, env=environment)
# dpkg finds its list of triggers missing, makes a new one, and fires those that it then knows: here, not later.
for step in ("--triggers-only", "--configure"):
    subprocess.run(["chroot", str(root), "dpkg", step, "-a"], check=True, env=environment, stdout=subprocess.DEVNULL)
print(f"{len(packages)} packages: {' '.join(packages)}")
PYTHON
