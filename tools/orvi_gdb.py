"""Shows orvi strings and handles as text in gdb:  (gdb) source tools/orvi_gdb.py"""

import gdb
import gdb.printing


class StringPrinter:
    """String_T: the text of its block, as long as the block says, NULs inside included."""

    HEADER_BYTES = 12

    def __init__(self, value):
        self.value = value

    def to_string(self):
        text = self.value["_text"]
        width = text.dereference().type.sizeof
        header = int(text) - self.HEADER_BYTES
        inferior = gdb.selected_inferior()
        size = int.from_bytes(inferior.read_memory(header, 4).tobytes(), "little")
        raw = inferior.read_memory(int(text), size - width).tobytes() if size > width else b""
        return raw.decode("utf-16-le" if width == 2 else "utf-8", "backslashreplace")

    def display_hint(self):
        return "string"


class HandlePrinter:
    """Handle_T: its object, or null."""

    def __init__(self, value):
        self.object = value["_object"]

    def to_string(self):
        if int(self.object) == 0:
            return "null handle"
        return "handle on %s at 0x%x" % (self.object.dynamic_type.target(), int(self.object))

    def children(self):
        if int(self.object) != 0:
            yield "object", self.object.dereference()


printers = gdb.printing.RegexpCollectionPrettyPrinter("orvi_core")
printers.add_printer("String_T", "^orvi::String_T<.*>$", StringPrinter)
printers.add_printer("Handle_T", "^orvi::Unknown::Handle_T<.*>$", HandlePrinter)
gdb.printing.register_pretty_printer(gdb.current_objfile(), printers, replace=True)
