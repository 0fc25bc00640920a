"""Pretty-printers for GDB, which loads this file together with the library.

They only read memory and call no function of the program, so they also work on a core file. They need the debug
information of the library. Values that cannot be read are shown as such, without a Python traceback.
"""

import itertools
import re
import time

import gdb
import gdb.printing

MAX_SHOWN = 32  # bytes of a block, words of a parcel


def standard_printer(container):
    """The printer of the C++ standard library, which knows the layout of its classes."""
    printer = gdb.default_visualizer(container)
    if printer is None:
        name = str(container.type.strip_typedefs()).partition("<")[0].rpartition("::")[2]
        raise gdb.error(f"GDB has no pretty-printer of the C++ standard library for std::{name}")
    return printer


def elements(container):
    """The elements of a container, keys and values of a map in turn, or the pointer in a std::unique_ptr."""
    return (element for _, element in standard_printer(container).children())


def count(container):
    """Taken from the text of the printer: iterating over a damaged container may take forever."""
    return int(re.search(r"-?\d+", standard_printer(container).to_string())[0])


def text(string):
    return standard_printer(string).to_string().value().format_string(format="s")  # also for print/x


def shared_target(pointer):
    # Not by elements(): the pretty-printer of a shared item is the one below.
    return pointer["_M_ptr"]


def object_at(pointer):
    """Dynamic class and address of a polymorphic object."""
    if not pointer:
        return "null"
    # The symbol of the table of virtual functions is known for classes without debug information too.
    table = pointer.cast(gdb.lookup_type("unsigned long").pointer()).dereference()
    symbol = re.search(r"vtable for (.+) \+ \d+ in section", gdb.execute(f"info symbol {int(table)}", to_string=True))
    return f"{symbol[1] if symbol else pointer.type.target().strip_typedefs()} at {int(pointer):#x}"


def age(monotonic_ns):
    """How long ago a program on this machine read its monotonic clock."""
    if getattr(gdb.selected_inferior().connection, "type", "") != "native":
        return "of unknown age"
    return f"{(time.monotonic_ns() - monotonic_ns) / 1e6:.0f} ms ago"


def hex_numbers(pointer, size):
    digits = 2 * pointer.type.target().sizeof
    shown = [f"{int(pointer[i]):0{digits}x}" for i in range(min(size, MAX_SHOWN))]
    return " ".join(shown + ["..."] * (size > MAX_SHOWN))


def unreadable(error):
    if "c++" not in gdb.execute("show language", to_string=True):
        error = "GDB uses the rules of another language; set language c++"
    return f"<cannot be read: {error}>"


class View:
    """Base of the pretty-printers; subclasses define title() and, for objects with children, parts()."""

    parts = tuple

    def __init__(self, value):
        # GDB knows no fields of a reference to a class that the program only declares.
        is_reference = value.type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF)
        self.value = value.referenced_value() if is_reference else value

    def to_string(self):
        try:
            if not self.value.type.strip_typedefs().fields():
                raise gdb.error("GDB has no debug information of the library")
            return self.title()
        except Exception as error:  # pylint: disable=broad-except
            self.parts = tuple
            return unreadable(error)

    def children(self):
        try:
            yield from self.parts()
        except Exception as error:  # pylint: disable=broad-except
            yield "rest", unreadable(error)


class ItemView(View):
    # Types and fields come from the debug information: META_TYPE_BYTE_BUFFER is the type of byteBufferValue.
    def title(self):
        number = int(self.value["mType"])
        names = {field.enumval: field.name.rpartition("::")[2] for field in self.value["mType"].type.fields()}
        name = names.get(number, f"unknown type {number}")
        if name == "META_TYPE_OBJECT":
            return f"{name} {object_at(shared_target(self.value['mObject']))}"
        if not name.startswith("META_TYPE_") or name == "META_TYPE_NONE":
            return name
        first, *others = name[len("META_TYPE_"):].lower().split("_")
        value = self.value["mValue"][first + "".join(map(str.capitalize, others)) + "Value"]
        if name == "META_TYPE_BYTE_BUFFER":
            size = int(value["size"])
            return f"{name} {size} bytes: {hex_numbers(value['data'], size)}"
        if value.type.strip_typedefs().code == gdb.TYPE_CODE_INT:
            return f"{name} {value.format_string().partition(' ')[0]}"  # of 8 bits, the character follows
        if name == "META_TYPE_STRING" and value:
            return f"{name} {value.format_string(address=False, format='s')}"
        return f"{name} {value.format_string(pretty_structs=False)}"


class SharedItemView(View):
    def title(self):
        item = shared_target(self.value)
        return ItemView(item.dereference()).to_string() if item else "null"


class MetaView(View):
    def title(self):
        return f"osal::MediaMeta, entries: {count(self.value['mItems'])}"

    def parts(self):
        entries = elements(self.value["mItems"])
        for key in entries:
            yield text(key), SharedItemView(next(entries)).to_string()


class IteratorView(View):
    def title(self):
        position = self.value["mIter"]["_M_node"]
        entries = self.value["mMap"]
        if not entries or position == entries["_M_t"]["_M_impl"]["_M_header"].address:
            return "end"
        key = entries.type.target().strip_typedefs().template_argument(0)
        return text((position + 1).cast(key.pointer()).dereference())  # the entry stands behind the node


class ParamView(View):
    def title(self):
        param = self.value
        return (f"osal::MediaParam, read: {int(param['mReadPos'])} of {int(param['mWritePos'])} bytes, "
                f"{int(param['mStringReadIndex'])} of {count(param['mStrings'])} strings, "
                f"{int(param['mRefReadIndex'])} of {count(param['mRefs'])} objects; "
                f"room: {int(param['mCapacity']) - int(param['mWritePos'])} bytes")

    def parts(self):
        param = self.value
        unread = int(param["mWritePos"]) - int(param["mReadPos"])
        if unread > 0:
            # The types are not recorded. Each value has the width of one or two of these words.
            words = (next(elements(param["mData"])) + param["mReadPos"]).cast(gdb.lookup_type("unsigned int").pointer())
            yield "unread 32-bit words", hex_numbers(words, unread // 4)
        first = int(param["mStringReadIndex"])
        for index, string in enumerate(itertools.islice(elements(param["mStrings"]), first, None), first):
            yield f"string {index}", text(string)
        first = int(param["mRefReadIndex"])
        for index, reference in enumerate(itertools.islice(elements(param["mRefs"]), first, None), first):
            yield f"object {index}", object_at(shared_target(reference))


class ThreadView(View):
    def title(self):
        thread = self.value
        title = f"osal::Thread {text(thread['mName'])}"
        if not next(elements(thread["mThread"])):
            return f"{title}, stopped"
        worker = int(thread["mId"])
        if thread["mStop"].address.cast(gdb.lookup_type("bool").pointer()).dereference():
            state = "stopping"
        elif worker == -1:
            state = "starting"
        else:
            known = (known.ptid[1] for known in gdb.selected_inferior().threads())
            state = "running" if worker in known else "ended by itself"
        return f"{title}, {state}, id {worker}"


class QueueView(View):
    def title(self):
        queue = self.value
        state = "stopping" if queue["mStopped"] else "running"
        return f"osal::MsgQueue {text(queue['mName'])}, {state if next(elements(queue['mThread'])) else 'stopped'}"

    def parts(self):
        queue = self.value
        worker = next(elements(queue["mThread"]))
        if worker:
            yield "worker", ThreadView(worker.dereference()).to_string()
        read_ns = int(queue["mNowNs"])
        if read_ns:
            yield "clock", f"read at {read_ns / 1e9:.6f} s, {age(read_ns)}"
        entries = elements(queue["mMsgs"])
        for due_ns in map(int, entries):
            # A list whose due time has passed may also hold messages that were due later.
            due = f"due {(due_ns - read_ns) / 1e6:+.3f} ms" if read_ns else f"due at {due_ns / 1e9:.6f} s" if due_ns else "due at once"
            for message in elements(next(entries)):
                yield due, object_at(message["mHandler"])


class HandlerView(View):
    def title(self):
        return f"osal::MsgHandlerBase, {'finished' if self.value['mFinished'] else 'not finished'}"


def register():
    views = gdb.printing.RegexpCollectionPrettyPrinter("osal")
    for name, view in (("MediaMeta", MetaView), ("MediaMeta::MetaItem", ItemView),
                       ("MediaMeta::ConstIterator", IteratorView), ("MediaParam", ParamView),
                       ("MsgHandlerBase", HandlerView), ("MsgQueue", QueueView), ("Thread", ThreadView)):
        views.add_printer(name, f"^osal::{name}$", view)
    views.add_printer("shared MetaItem", "^std::shared_ptr<osal::MediaMeta::MetaItem>$", SharedItemView)
    # With the program, whose pretty-printers GDB tries first: the standard library has one for each std::shared_ptr,
    # and may be loaded before this library.
    program = next(iter(gdb.objfiles()), None)
    gdb.printing.register_pretty_printer(program, views, replace=True)


register()
