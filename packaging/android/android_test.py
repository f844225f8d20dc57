"""Android.bp, kesd.rc and the policy, which nothing here can build, against the targets and the code that are built."""

import json
import pathlib
import re
import sys
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
ANDROID = SOURCE / "packaging/android"
COMMON = {"name", "defaults", "srcs", "static_libs"}
DAEMON = {"vendor", "compile_multilib", "cpp_std", "cflags", "cppflags", "rtti"}
PROPERTIES = {
    "package": {"default_applicable_licenses"},
    "license": {"name", "visibility", "license_kinds"},
    "cc_defaults": COMMON | DAEMON | {"ldflags", "test_suites"},
    "cc_library_static": COMMON | {"rtti"},
    "cc_binary": COMMON | {"init_rc", "shared_libs", "required"},
    "cc_test": COMMON,
}
# Of the policy that every device has.
PUBLIC_TYPES = {"domain", "exec_type", "vendor_file_type", "file_type", "su"}
MACROS = {"init_daemon_domain": "{0} {0}_exec", "unix_socket_connect": "{0} {1}_socket {2}"}


class Blueprint:
    """Modules by name, with what their defaults add."""

    def __init__(self, text):
        self.modules = {}
        text = re.sub(r" *//.*", "", text)
        if odd := re.search(r"[^\w\s{}\[\]:,]", re.sub(r'"[^"\\\n]*"', "", text)):
            raise ValueError(f"{odd} has no meaning")
        # The rest is read as calls of Python's, which take the same values, and no argument twice.
        calls = re.sub(r"(?m)^(\w+) \{$(.*?)^\}$", r"module('\1',\2)", text, flags=re.DOTALL)
        exec(re.sub(r"(?m)^( +\w+):", r"\1=", calls), {"module": self.add, "true": True, "false": False})
        self.modules = {name: self.with_defaults(module) for name, module in self.modules.items()}

    def add(self, kind, **module):
        if unknown := module.keys() - PROPERTIES[kind]:
            raise ValueError(f"{kind} has no {unknown}")
        if module.get("name", kind) in self.modules:
            raise ValueError(f"two modules {module.get('name', kind)}")
        self.modules[module.get("name", kind)] = module | {"kind": kind}

    def with_defaults(self, module):
        whole = dict(module)
        for default in module.get("defaults", []):
            for key, value in self.with_defaults(self.modules[default]).items():
                whole[key] = whole.get(key, []) + value if isinstance(value, list) else whole.get(key, value)
        return whole


class Targets:
    """What CMake builds, as targets.json tells."""

    def __init__(self, path):
        told = json.loads(pathlib.Path(path).read_text())
        self.standard = told["standard"]
        self.all = {name: target for name, target in told["targets"].items() if target}
        self.daemons = {name for name, target in self.all.items() if target["folder"] in told["daemon"]}

    def get(self, name, *properties):
        lists = (self.all[name][each].split(";") for each in properties)
        return [item for each in lists for item in each if item and not item.endswith("-NOTFOUND")]

    def libraries(self, name, kind):
        """Those of a kind that a target links, also by way of others."""
        seen, rest = set(), [name]
        while rest:
            for each in self.get(rest.pop(), "LINK_LIBRARIES", "INTERFACE_LINK_LIBRARIES"):
                if each in self.all and each not in seen:
                    seen.add(each)
                    if self.all[each]["TYPE"] != "SHARED_LIBRARY":
                        rest.append(each)
        return {each for each in seen if self.all[each]["TYPE"] == kind}

    def sources(self, *names):
        return [f"{self.all[name]['folder']}/{each}" for name in names for each in self.get(name, "SOURCES")
                if each.endswith(".cpp")]


class Android(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.targets = Targets(TOLD_BY_CMAKE)
        cls.modules = Blueprint((ANDROID / "Android.bp").read_text()).modules
        cls.main = (SOURCE / "service/main.cpp").read_text()
        cls.rc = [line.split() for line in (ANDROID / "kesd.rc").read_text().splitlines() if not line.startswith("#")]
        cls.contexts = dict(line.split() for line in (ANDROID / "sepolicy/file_contexts").read_text().splitlines())

    def test_builds_what_cmake_builds(self):
        targets, kinds = self.targets, {"STATIC_LIBRARY": "cc_library_static", "EXECUTABLE": "cc_binary"}
        expected = {}  # a target and its kind of module, by the module's name
        for target in targets.daemons:
            if target.endswith("_test"):
                expected["kesd_" + target] = target, "cc_test"
            elif targets.all[target]["TYPE"] in kinds:
                expected[target] = target, kinds[targets.all[target]["TYPE"]]
        self.assertEqual({name: module["kind"] for name, module in self.modules.items()
                          if module["kind"] not in ("cc_defaults", "package", "license")},
                         {name: kind for name, (_, kind) in expected.items()})
        for name, (target, kind) in expected.items():
            module, linked = self.modules[name], targets.libraries(target, "STATIC_LIBRARY")
            stand_ins = linked - targets.daemons  # are compiled into each test
            with self.subTest(name):
                self.assertCountEqual(module["srcs"], targets.sources(target, *stand_ins))
                self.assertCountEqual(module.get("ldflags", []), [
                    option for each in stand_ins for option in targets.get(each, "INTERFACE_LINK_OPTIONS")])
                self.assertCountEqual(module.get("static_libs", []),
                                      linked - stand_ins if kind != "cc_library_static" else [])
                self.assertCountEqual(module.get("shared_libs", []),
                                      ["lib" + each for each in targets.libraries(target, "SHARED_LIBRARY")])
                warnings = {each for each in targets.get(target, "COMPILE_OPTIONS") if each.startswith("-W")}
                # Those of some builds only, here.
                self.assertEqual(set(module["cflags"]), warnings | {"-Werror", "-Wthread-safety"})
                self.assertEqual(module["cppflags"], ["-fexceptions"])
                self.assertEqual(module["rtti"], "-fno-rtti" not in targets.get(target, "COMPILE_OPTIONS"))
                self.assertEqual(module["cpp_std"], targets.standard)
        self.assertEqual(self.modules["kesd"]["required"], re.findall(r'dlopen\("(\w+)\.so"', self.main))

    def test_starts_the_program_with_the_socket_that_it_asks_for(self):
        (service, name, path), *options = self.rc
        program = self.modules["kesd"]
        self.assertEqual((service, path), ("service", f"/vendor/bin/{program['name']}" if program["vendor"] else None))
        self.assertEqual(program["init_rc"], ["packaging/android/kesd.rc"])
        self.assertEqual(name, program["name"])
        given = {option: arguments for option, *arguments in options}
        self.assertEqual(given.keys(), {"class", "user", "group", "socket"})
        self.assertNotEqual(given["user"], ["root"])
        socket, kind, mode, *_ = given["socket"]
        self.assertEqual([socket], re.findall(r'kControlSocket\[\] = "(\w+)"', self.main))
        self.assertIn("android_get_control_socket(kControlSocket)", self.main)
        self.assertEqual((kind, mode), ("stream", "0660"))
        labels = {path: [label for pattern, label in self.contexts.items() if re.fullmatch(pattern, path)]
                  for path in (path, "/dev/socket/" + socket)}
        self.assertEqual(list(labels.values()), [["u:object_r:kesd_exec:s0"], ["u:object_r:kesd_socket:s0"]])
        self.assertEqual(len(self.contexts), 2)

    def test_names_only_types_that_there_are(self):
        files = [ANDROID / "sepolicy/attributes", *(ANDROID / "sepolicy").glob("*.te")]  # as they are read
        policy = re.sub(r"#.*", "", "".join(file.read_text() for file in files))
        policy = re.sub(r"userdebug_or_eng\(`(.*?)'\)", r"\1", policy)
        declared, used = set(), {label.split(":")[2] for label in self.contexts.values()}
        statement = r"[a-z_]+\([^()]*\)|[^;()]+;"
        self.assertEqual(re.sub(statement, "", policy).strip(), "")
        for each in re.findall(statement, policy):
            word, rest = re.fullmatch(r"\s*([a-z_]+)\W*(.*?)[;)]", each, re.DOTALL).groups()
            if word in ("type", "attribute"):
                first, *more = re.findall(r"\w+", rest)
                declared.add(first)
                used.update(more)
            elif word in ("allow", "neverallow"):
                used.update(re.findall(r"\w+", rest.partition(":")[0]))
            else:
                used.update(MACROS[word].format(*re.findall(r"\w+", rest)).split())
        self.assertEqual(used - declared - PUBLIC_TYPES - {"self"}, set())
        self.assertEqual(declared - used, set())


if __name__ == "__main__":
    TOLD_BY_CMAKE = sys.argv.pop(1)
    unittest.main()
