"""Pretty-printers of gdb for KestSmartPointer, 16-bit strings, KestProperties and KestDateTime.

gdb loads this file with the library when it is installed below gdb's folder for such files. Otherwise load it with
`source kestsupport_printers.py`. KestProperties and KestDateTime need a library with debug information.
"""

import gdb
import gdb.printing
import gdb.types


class SmartPointerPrinter:
    """The number of references, and the object itself as a child."""

    def __init__(self, value):
        self.target = value["m_pTarget"]

    def to_string(self):
        if not self.target:
            return "KestSmartPointer, null"
        try:
            count = int(self.target["m_refCount"]["_M_i"])
        except gdb.error:
            return "KestSmartPointer"  # the library has no debug information
        return "KestSmartPointer, %d reference%s" % (count, "" if count == 1 else "s")

    def children(self):
        if self.target:
            yield "target", self.target.dereference()


class WideStringPrinter:
    """Text of 16-bit units. A unit that is no character is shown by its number."""

    def __init__(self, value):
        self.start = int(value["_M_dataplus"]["_M_p"])
        self.length = int(value["_M_string_length"])

    def to_string(self):
        # gdb cuts a text that is longer than its limit, and says so. A string that is not initialized has any length.
        limit = gdb.parameter("print elements") or 100000
        return text_at(self.start, min(self.length, limit + 1), 2)

    def display_hint(self):
        return "string"


class PropertiesPrinter:
    """The names in the order of the table's places, each with its first value."""

    def __init__(self, value):
        # The pointer is all that its owner holds. Only the library's debug information has the type of the table.
        owner = value["m_pTable"]
        try:
            table = gdb.lookup_type(owner.type.template_argument(0).name).pointer()
            self.table = owner.address.cast(table.pointer()).dereference().dereference()
            self.count = int(self.table["m_index"]["m_count"])
            self.entry = self.table["m_furtherValues"].type.template_argument(0).target().unqualified()
            self.unit = self.entry.template_argument(0).template_argument(0).sizeof
        except gdb.error:
            self.table = None

    def to_string(self):
        if self.table is None:
            return "KestProperties (the library has no debug information)"
        return "KestProperties with %d name%s" % (self.count, "" if self.count == 1 else "s")

    def children(self):
        if self.table is None:
            return
        bits = 8 * self.entry.fields()[-1].type.sizeof - 1
        for block in vector_items(self.table["m_entries"]["m_blocks"]):
            place = int(unique_target(block["memory"]))
            end = place + 8 * int(block["used"])
            while place < end:
                entry = gdb.Value(place).cast(self.entry.pointer()).dereference()
                length = int(entry["m_length"])
                size = self.unit * (length & ~(1 << bits))
                name = place + self.entry.sizeof
                if not length >> bits:  # the highest bit marks an erased entry
                    yield "name", text_at(name, size // self.unit, self.unit)
                    yield "value", entry["value"]
                place = name + (size + 7) // 8 * 8

    def display_hint(self):
        return "map"


class DateTimePrinter:
    """The fields, which are in local time."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        field = lambda name: int(self.value[name])
        return "%04d-%02d-%02d %02d:%02d:%02d local time" % (
            field("m_year"), field("m_month") + 1, field("m_day"), field("m_hour"), field("m_minute"), field("m_second"))


def vector_items(vector):
    """The items of a std::vector of libstdc++."""
    item, end = vector["_M_impl"]["_M_start"], vector["_M_impl"]["_M_finish"]
    while item != end:
        yield item.dereference()
        item = item + 1


def unique_target(pointer):
    """The address that a std::unique_ptr holds, which is all that is in it."""
    return pointer.address.cast(gdb.lookup_type("unsigned long").pointer()).dereference()


def text_at(start, length, unit):
    text = gdb.selected_inferior().read_memory(start, unit * length).tobytes() if length else b""
    return text.decode("utf-8" if unit == 1 else "utf-16-le", "backslashreplace")


class Printers(gdb.printing.RegexpCollectionPrettyPrinter):
    """Leaves a type to gdb that no debug information describes."""

    def __call__(self, value):
        described = gdb.types.get_basic_type(value.type)
        return super().__call__(value) if described.code == gdb.TYPE_CODE_STRUCT and described.fields() else None


def build_printers():
    printers = Printers("kestsupport")
    printers.add_printer("KestSmartPointer", "^KestSupport::KestSmartPointer<.*>$", SmartPointerPrinter)
    printers.add_printer("wstring16", "^std::(__cxx11::)?basic_string<unsigned short,.*>$", WideStringPrinter)
    printers.add_printer("KestProperties", "^KestSupport::KestProperties<.*>$", PropertiesPrinter)
    printers.add_printer("KestDateTime", "^KestSupport::KestDateTime$", DateTimePrinter)
    return printers


# The printers of a file are asked before those of the whole session, which the standard library's may precede.
objfile = gdb.current_objfile() or next(iter(gdb.objfiles()), None)
gdb.printing.register_pretty_printer(objfile, build_printers(), replace=True)
