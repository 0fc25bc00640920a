"""Pretty-printers for GDB, which loads this file together with the library.

They only read memory and call no function of the program, so they also work on a core file. They need the debug
information of the library. Values that cannot be read are shown as such, without a Python traceback.
"""

import itertools
import re

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
    return standard_printer(string).to_string().value().format_string()


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


def hex_numbers(pointer, size):
    digits = 2 * pointer.type.target().sizeof
    shown = [f"{int(pointer[i]):0{digits}x}" for i in range(min(size, MAX_SHOWN))]
    return " ".join(shown + ["..."] * (size > MAX_SHOWN))


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
            return f"<cannot be read: {error}>"

    def children(self):
        try:
            yield from self.parts()
        except Exception as error:  # pylint: disable=broad-except
            yield "rest", f"<cannot be read: {error}>"


class ItemView(View):
    # Types and fields come from the debug information: META_TYPE_BYTE_BUFFER is the type of byteBufferValue.
    def title(self):
        name = str(self.value["mType"]).rpartition("::")[2]
        if name == "META_TYPE_NONE":
            return name
        if name == "META_TYPE_OBJECT":
            return f"{name} {object_at(shared_target(self.value['mObject']))}"
        if not name.startswith("META_TYPE_"):
            return f"unknown type {name}"
        first, *others = name[len("META_TYPE_"):].lower().split("_")
        value = self.value["mValue"][first + "".join(map(str.capitalize, others)) + "Value"]
        if name == "META_TYPE_BYTE_BUFFER":
            size = int(value["size"])
            return f"{name} {size} bytes: {hex_numbers(value['data'], size)}"
        if value.type.strip_typedefs().code == gdb.TYPE_CODE_INT:
            return f"{name} {int(value)}"  # GDB shows 8-bit integers as characters
        if name == "META_TYPE_STRING" and value:
            return f"{name} {value.format_string(address=False)}"
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
        yield "mNowNs", queue["mNowNs"]
        entries = elements(queue["mMsgs"])
        for due_ns in entries:
            # A list whose due time has passed may also hold messages that were due later.
            after_ns = int(due_ns) - int(queue["mNowNs"])
            for message in elements(next(entries)):
                yield f"due {after_ns / 1e6:+.3f} ms", object_at(message["mHandler"])


def register():
    views = gdb.printing.RegexpCollectionPrettyPrinter("osal")
    for name, view in (("MediaMeta", MetaView), ("MediaMeta::MetaItem", ItemView), ("MediaParam", ParamView),
                       ("MsgQueue", QueueView), ("Thread", ThreadView)):
        views.add_printer(name, f"^osal::{name}$", view)
    views.add_printer("shared MetaItem", "^std::shared_ptr<osal::MediaMeta::MetaItem>$", SharedItemView)
    # With the program, whose pretty-printers GDB tries first: the standard library has one for each std::shared_ptr,
    # and may be loaded before this library.
    program = next(iter(gdb.objfiles()), None)
    gdb.printing.register_pretty_printer(program, views, replace=True)


register()
