"""What the built library shows to the outside, read from the ELF file itself.

    OLV_LIBRARY=build/release/twamp/libolv-twamp.so python3 tests/abi/library_test.py
"""
import os
import re
import unittest
from pathlib import Path

from elftools.elf.elffile import ELFFile

PLATFORM_SYMBOLS = {
    "hyx_gettime", "hyx_htonl", "hyx_htons", "hyx_ntohl", "hyx_nvm_calloc", "hyx_nvm_free", "hyx_ptn_learn",
    "hyx_ptn_list_ptns", "hyx_ptn_symbol_get_id", "hyx_ptn_unlearn", "hyx_rsrc_allocate", "hyx_rsrc_find",
    "hyx_rsrc_free", "hyx_se_state_get", "hyx_se_state_set", "hyx_sem_post", "hyx_status_get",
    "hyx_timer_get_timestamp", "moduleMgrCpuServiceFn", "olv_byte_string_print", "olv_lttng_fn_ptr_get",
    "olv_lttng_trace_sif_force_error", "olv_module_service_function_register",
    "olv_module_service_function_update", "olv_ptn_action_print", "olv_ptn_extend", "olv_ptn_free",
    "olv_ptn_new", "olv_ptn_parse", "olv_ptn_print", "olv_sif_fps_map", "olv_sys_sem_lock_wait",
    "olv_sys_status_get",
}

EXECUTABLE = 1  # PF_X
WRITABLE = 1  # SHF_WRITE


def exported_operations():
    """The names in the table that the interface tests call the library through."""
    header = Path(__file__).parent.parent / "interface" / "exported_operations.h"
    names = set(re.findall(r"^ +X\((\w+),", header.read_text(encoding="utf-8"), re.MULTILINE))
    assert len(names) == 20, names
    return names


class Library(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.path = os.environ["OLV_LIBRARY"]
        cls.stream = open(cls.path, "rb")  # pylint: disable=consider-using-with
        cls.elf = ELFFile(cls.stream)

    @classmethod
    def tearDownClass(cls):
        cls.stream.close()

    def dynamic(self, tag):
        return [entry for entry in self.elf.get_section_by_name(".dynamic").iter_tags() if entry.entry.d_tag == tag]

    def dynamic_flags(self, tag):
        return sum(entry.entry.d_val for entry in self.dynamic(tag))

    def segments(self, kind):
        return [segment for segment in self.elf.iter_segments() if segment["p_type"] == kind]

    def symbols(self, defined):
        """Dynamic symbols with the name of the library that each is versioned for, if any. Local ones are the
        linker's own and bind to nothing."""
        versions = {}
        for library, needed in self.elf.get_section_by_name(".gnu.version_r").iter_versions():
            versions.update((version["vna_other"], library.name) for version in needed)
        table = self.elf.get_section_by_name(".dynsym")
        indices = self.elf.get_section_by_name(".gnu.version")
        for number in range(1, table.num_symbols()):
            symbol = table.get_symbol(number)
            local = symbol["st_info"]["bind"] == "STB_LOCAL"
            if not local and (symbol["st_shndx"] != "SHN_UNDEF") == defined:
                yield symbol, versions.get(indices.get_symbol(number)["ndx"])

    def test_needs_the_c_library_alone(self):
        self.assertEqual([entry.needed for entry in self.dynamic("DT_NEEDED")], ["libc.so.6"])

    def test_has_the_soname_of_its_first_interface(self):
        self.assertEqual([entry.soname for entry in self.dynamic("DT_SONAME")], ["libolv-twamp.so.1"])

    def test_has_no_search_path(self):
        self.assertEqual(self.dynamic("DT_RPATH") + self.dynamic("DT_RUNPATH"), [])

    def test_defines_exactly_the_exported_operations(self):
        defined = list(self.symbols(defined=True))
        self.assertEqual({symbol.name for symbol, _ in defined}, exported_operations())
        self.assertEqual(len(defined), 20)
        self.assertEqual({symbol["st_info"]["type"] for symbol, _ in defined}, {"STT_FUNC"})

    def test_leaves_only_symbols_of_the_platform_and_the_c_library_undefined(self):
        undefined = [(symbol.name, library) for symbol, library in self.symbols(defined=False)]
        self.assertEqual({name for name, library in undefined if library is None}, PLATFORM_SYMBOLS)
        self.assertEqual({library for _, library in undefined if library is not None}, {"libc.so.6"})

    def test_is_what_the_integration_guide_lists_symbols_for(self):
        guide = Path(__file__).parent.parent.parent / "docs" / "integration.md"
        rows = [line for line in guide.read_text(encoding="utf-8").splitlines() if line.startswith("| `")]
        first_cells = " ".join(row.split("|")[1] for row in rows)
        self.assertEqual(set(re.findall(r"`((?:olv_|hyx_|moduleMgr)\w+)`", first_cells)), PLATFORM_SYMBOLS)

    def test_is_relocated_and_sealed_before_it_runs(self):
        self.assertEqual(len(self.segments("PT_GNU_RELRO")), 1)
        self.assertTrue(self.dynamic_flags("DT_FLAGS") & 8, "DF_BIND_NOW is not set")
        self.assertTrue(self.dynamic_flags("DT_FLAGS_1") & 1, "DF_1_NOW is not set")

    def test_has_no_executable_stack(self):
        stacks = self.segments("PT_GNU_STACK")
        self.assertEqual(len(stacks), 1)
        self.assertFalse(stacks[0]["p_flags"] & EXECUTABLE)

    def test_has_no_text_relocations(self):
        self.assertEqual(self.dynamic("DT_TEXTREL"), [])
        self.assertFalse(self.dynamic_flags("DT_FLAGS") & 4, "DF_TEXTREL is set")

    def test_has_no_writable_data_and_runs_nothing_by_itself(self):
        sizes = {section.name: section["sh_size"] for section in self.elf.iter_sections()}
        for name in (".data", ".bss", ".tdata", ".tbss", ".init", ".fini", ".init_array", ".fini_array"):
            self.assertEqual(sizes.get(name, 0), 0, name)
        sealed = self.segments("PT_GNU_RELRO")[0]
        for section in self.elf.iter_sections():
            if section["sh_flags"] & WRITABLE and section["sh_size"] > 0:
                self.assertTrue(sealed.section_in_segment(section), f"{section.name} stays writable")


if __name__ == "__main__":
    unittest.main()
