#!/usr/bin/env python3
"""Says where Android.bp and CMake would build the node differently, for AArch64 (preset aarch64) and x86-64 (preset
clang): sources, the flags of each, include folders, libraries, how it is linked. One line for each difference, and
exit status 1 when there is any. CMake tells by its file API; nothing is built.
Usage: compare-android-bp.py [BUILD_FOLDER]"""
import collections
import fnmatch
import json
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARY = "com.oxa.node.dewarp"
PRESETS = {"arm64": "aarch64", "x86_64": "clang"}

# What only CMake says, each with the reason why Android.bp does not.
CMAKE_ALONE = {
    "-O2": "Soong's own",
    "-g": "Soong's own",
    "-DNDEBUG": "Soong's own",
    "-fPIC": "Soong's own",
    "-fdebug-prefix-map=*": "Soong compiles under relative paths",
    "-fmacro-prefix-map=*": "Soong compiles under relative paths",
    "-fcheck-new": "g++ only; cmake/PlainNew.cmake keeps out what it is for",
    "-flifetime-dse=1": "g++ only",
    "-Wno-psabi": "g++ only",
    "-static-libgcc": "Soong's own",
    "-rpath*": "a device's linker knows where the libraries are, a workstation's does not",
}
# The properties that are compared, and those for which CMake has its presets or no need.
COMPARED = {"srcs", "exclude_srcs", "static_libs", "shared_libs", "header_libs", "local_include_dirs", "cpp_std",
            "cflags", "cppflags", "ldflags", "version_script", "stl", "allow_undefined_symbols"}
BLUEPRINT_ALONE = {"type", "name", "defaults", "arch", "vendor", "compile_multilib"}
# Whose headers the folders of the includes are.
HEADERS = {"EGL": "gl_headers", "GLES2": "gl_headers", "GLES3": "gl_headers",
           "android": "liblog", "cutils": "libcutils", "utils": "libutils"}


class Blueprint:
    """The modules of a blueprint file by name, each a dictionary of its properties. Takes strings, booleans, lists
    and maps, no variables and no expressions; anything else ends the program with a line that says where."""
    TOKEN = re.compile(r'\s+|//[^\n]*|(?P<token>"[^"\\\n]*"|\w+|[][{}:,])')

    def __init__(self, path):
        self.path, self.text, self.at, self.token = path, path.read_text(), 0, None
        self.modules = {}
        self.advance()
        while self.token:
            kind = self.take(r"\w+")
            module = {"type": kind, **self.map()}
            self.modules[module["name"]] = module

    def advance(self):
        self.token = None
        while self.at < len(self.text) and not self.token:
            match = self.TOKEN.match(self.text, self.at)
            if not match:
                self.fail("a blueprint's token")
            self.at, self.token = match.end(), match["token"]

    def take(self, pattern):
        token = self.token
        if not re.fullmatch(pattern, token or ""):
            self.fail(pattern)
        self.advance()
        return token

    def fail(self, expected):
        line = self.text.count("\n", 0, self.at) + 1
        sys.exit(f"{self.path}:{line}: expected {expected}, got {self.token or self.text[self.at:self.at + 1]!r}")

    def map(self):
        entries = {}
        self.take("{")
        while self.token != "}":
            name = self.take(r"\w+")
            if name in entries:
                self.fail(f"one {name} only")
            self.take(":")
            entries[name] = self.value()
            self.take(",")
        self.take("}")
        return entries

    def value(self):
        if self.token == "{":
            return self.map()
        if self.token != "[":
            token = self.take(r'".*"|true|false')
            return token[1:-1] if token[0] == '"' else token == "true"
        values = []
        self.take(r"\[")
        while self.token != "]":
            values.append(self.take('".*"')[1:-1])
            if self.token != "]":
                self.take(",")
        self.take("]")
        return values

    def resolve(self, name, arch):
        """The module's properties, with those of its defaults before and of the architecture behind them."""
        if name not in self.modules:
            sys.exit(f"{self.path}: expected a module {name}")
        module = self.modules[name]
        parts = [*(self.resolve(default, arch) for default in module.get("defaults", [])),
                 module, module.get("arch", {}).get(arch, {})]
        merged = collections.defaultdict(list)
        for key, value in (item for part in parts for item in part.items()):
            merged[key] = merged[key] + value if isinstance(value, list) else value
        return merged


def linker_flags(flags):
    """What the linker gets: of -Wl,-z,relro and of -Xlinker -z -Xlinker relro the same "-z relro"."""
    parts = iter(part for flag in flags if flag != "-Xlinker" for part in flag.removeprefix("-Wl,").split(","))
    for part in parts:
        yield f"{part} {next(parts)}" if part in ("-z", "-rpath", "-rpath-link") else part


def from_blueprint(blueprint, arch):
    """The flags of each source by its path, include folders among them, and those of the link, libraries and version
    script among them."""
    library = blueprint.resolve(LIBRARY, arch)
    sources = {}
    for part in [library, *(blueprint.resolve(name, arch) for name in library["static_libs"])]:
        flags = {*part["cflags"], *part["cppflags"], f"-std={part['cpp_std']}",
                 *("-I" + folder for folder in part["local_include_dirs"])}
        left_out = {path for pattern in part["exclude_srcs"] for path in ROOT.glob(pattern)}
        for pattern in part["srcs"]:
            # A name that finds nothing stands for itself: CMake has no such source.
            for path in set(ROOT.glob(pattern)) - left_out or {ROOT / pattern}:
                name = relative(path)
                sources[f"{name}, once more" if name in sources else name] = flags
    return sources, {*linker_flags(library["ldflags"]), f"--version-script={library['version_script']}",
                     *(name + ".so" for name in library["shared_libs"]),
                     *(["-static-libstdc++"] if library["stl"] == "c++_static" else []),
                     *(["-z undefs"] if library["allow_undefined_symbols"] else [])}


def from_cmake(preset, build):
    """The same, as CMake configures it in a build folder of its own."""
    query = build / ".cmake/api/v1/query/codemodel-v2"
    query.parent.mkdir(parents=True, exist_ok=True)
    query.touch()
    subprocess.run(["cmake", "--preset", preset, "-B", build, "-DDEWARP_DESK=OFF", "-DDEWARP_TESTS=OFF"],
                   cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    reply = build / ".cmake/api/v1/reply"
    index = json.loads(max(reply.glob("index-*.json")).read_text())
    model = json.loads((reply / index["reply"]["codemodel-v2"]["jsonFile"]).read_text())
    sources, link = {}, set()
    for entry in model["configurations"][0]["targets"]:
        target = json.loads((reply / entry["jsonFile"]).read_text())
        for group in target.get("compileGroups", []):
            flags = {*words(group["compileCommandFragments"]),
                     *("-D" + each["define"] for each in group.get("defines", [])),
                     *("-I" + relative(each["path"]) for each in group["includes"] if not each.get("isSystem"))}
            sources.update((target["sources"][i]["path"], flags) for i in group["sourceIndexes"])
        link.update(map(without_place, linker_flags(words(target.get("link", {}).get("commandFragments", [])))))
    return sources, link


def words(fragments):
    return [word for each in fragments for word in shlex.split(each["fragment"])]


def relative(path):
    return str(pathlib.Path(path).relative_to(ROOT))


def without_place(flag):
    """A library by its name, the version script by its path in the project."""
    option, _, path = flag.rpartition("=")
    return f"{option}={relative(path)}" if option == "--version-script" else re.sub(r"^/.*/(lib\w+\.so)$", r"\1", flag)


def differences(blueprint, cmake):
    """A line for each flag, library or source that one of the two has alone."""
    (blueprint_sources, blueprint_link), (cmake_sources, cmake_link) = blueprint, cmake
    alone = {}
    for source in sorted({*blueprint_sources, *cmake_sources}):
        if source not in cmake_sources:
            yield f"{source}: Android.bp compiles it, CMake does not"
        elif source not in blueprint_sources:
            yield f"{source}: CMake compiles it, Android.bp does not"
        else:
            for where, flag in each_alone(blueprint_sources[source], cmake_sources[source]):
                alone.setdefault((where, flag), []).append(source)
    for (where, flag), sources in alone.items():
        everywhere = len(sources) == len(cmake_sources)
        yield f"{flag}: {where} alone compiles with it, {'every source' if everywhere else ' '.join(sources)}"
    for where, flag in each_alone(blueprint_link, cmake_link):
        yield f"{flag}: {where} alone links with it"


def each_alone(blueprint, cmake):
    for flag in sorted(blueprint - cmake):
        yield "Android.bp", flag
    for flag in sorted(cmake - blueprint):
        if not any(fnmatch.fnmatchcase(flag, pattern) for pattern in CMAKE_ALONE):
            yield "CMake", flag


def of_properties(blueprint):
    """A line for each property that nothing here compares, and for each library that is named although the sources
    include no header of it, or the other way round."""
    for module in blueprint.modules.values():
        for properties in [module, *module.get("arch", {}).values()]:
            for name in sorted(set(properties) - COMPARED - BLUEPRINT_ALONE):
                yield f"{name}: a property of {module['name']} that is not compared"
    library = blueprint.resolve(LIBRARY, None)
    paths = [path for folder in ("include", "node", "utils") for path in (ROOT / folder).rglob("*.*")]
    folders = {folder for path in paths for folder in re.findall(r"^#include <(\w+)/", path.read_text(), re.M)}
    wanted = {HEADERS.get(folder, f"the library of <{folder}/...>") for folder in folders}
    named = {*library["header_libs"], *library["shared_libs"]}
    for name in sorted(wanted - named):
        yield f"{name}: sources include its headers, Android.bp does not name it"
    for name in sorted(named - wanted):
        yield f"{name}: Android.bp names it, no source includes its headers"


def main():
    build = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "build/compare"
    blueprint = Blueprint(ROOT / "Android.bp")
    found = {line: list(PRESETS) for line in of_properties(blueprint)}
    for arch, preset in PRESETS.items():
        for line in differences(from_blueprint(blueprint, arch), from_cmake(preset, build.absolute() / preset)):
            found.setdefault(line, []).append(arch)
    for line, archs in found.items():
        print(line if len(archs) == len(PRESETS) else f"{line} ({archs[0]})")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
