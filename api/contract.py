"""What the contract suite (tests/contract) needs to know of every argument.

Each shape's arguments get a role. Most roles follow from the argument's
type and name; a shape states the others, or overrides one, with lines of its
own (fields separated by spaces; an expression contains no spaces and may
name any earlier-decided argument, its fields (.width .height .x .y) and
rand(a,b), a whole number drawn from a..b):

    image NAME in|out|inout [type=s|d|CTYPE] [ch=s|d|N] [step=ARG] [roi=SIZE]
          [border=LEFT,TOP,RIGHT,BOTTOM] [fill=LO..HI]
        An image at NAME with its row step in ARG (default: the argument named
        after it, pSrc -> srcStep), covering SIZE pixels (default: the shape's
        only RokiSize argument) plus a border that the call reads round it.
        type: its samples are the export's source (s) or destination (d)
        type, or CTYPE. ch: channels per pixel, the layout's source (s) or
        destination (d) count, or N. fill: samples drawn from LO..HI (in
        steps of 1/8 for floating types) instead of random bits, for images
        that hold numbers the call uses as positions or indices.
    planes NAME in|out N [type=..] [step=ARG] [roi=SIZE]
        An array of N pointers to one-channel planes sharing one step.
    tables NAME in|out n=COUNT [type=CTYPE]
        An array of pointers (as many as the argument's [N]) to tables of
        COUNT elements each, such as per-channel levels or palettes.
    array NAME in|out n=COUNT [type=CTYPE] [fill=LO..HI|rising]
        COUNT elements; inputs are random, or drawn from LO..HI, or rising.
    out NAME [n=COUNT]
        A result written through a pointer (one element by default).
    buffer NAME query=CALL [nullok]
        Scratch whose size in bytes CALL writes to `size`; CALL may name the
        export's {type} and {layout}. nullok: a null buffer is valid (the
        function allocates its own), so the null probe passes it by.
    record NAME make=CALL free=CALL [consumed]
        A specification or state record the suite makes before the call:
        CALL writes it to `rec` (several calls may be joined by ';', each must
        return 0) and free=CALL releases `rec`. consumed: a successful call
        releases the record itself (the Free functions).
    made NAME free=CALL
        The address where the call writes a new record (the InitAlloc
        functions); the suite releases what a successful call made.
    let NAME v=EXPR
        A number the export does not take but its other arguments follow
        from (a transform's orders, say), drawn like an int argument.
    roi NAME [square] [bad=STATUS]
        The size the suite chooses (widths 1..67, heights 1..5, and a larger
        one for the thread comparison; square: the height is the width).
        bad: the status for a width or height of 0 or -1 (default -6;
        'none': not probed).
    size NAME w=EXPR h=EXPR [bad=STATUS]
    rect NAME x=EXPR y=EXPR w=EXPR h=EXPR [bad=STATUS]
                                      a RokiRect; bad: probed with a width or height of 0 and -1
    int NAME v=EXPR [bad=STATUS]      bad: probed with 0 and -1 like a size
    real NAME v=EXPR
    point NAME x=EXPR y=EXPR
    value NAME [v=EXPR]               a random sample of its type, or EXPR converted to it
    threads W H                       ROI of the thread comparison (default 160 80)
    threads none                      results depend on the thread count by design
    accept STATUS ...                 statuses a call with drawn values may give besides
                                      success and warnings (a size the drawn values rule out)
    writes STATUS ...                 errors that come with the outputs written, by design
    contract skip                     not a status-returning image function

Inferred: pX with an int xStep is an image (const: in; SrcDst: inout; else
out); a const array [N] is an input array, a non-const one an output; a
non-const pointer without a step is a one-element result; the only RokiSize
is the roi; scaleFactor is drawn from -4..12, roundMode and hint from 0..2,
and arguments of the sample types are random values. Anything else must be
stated, or generation fails.
"""
import re

ROLE_KEYS = ("image", "planes", "tables", "array", "out", "buffer", "roi", "size", "rect", "int", "real", "point", "value",
             "record", "made", "let", "threads", "accept", "writes", "contract")

C_SIZES = {
    "Rok8u": 1, "Rok8s": 1, "Rok16u": 2, "Rok16s": 2, "Rok32u": 4, "Rok32s": 4, "Rok32f": 4, "Rok64s": 8,
    "Rok64f": 8, "Rok16sc": 4, "Rok32sc": 8, "Rok32fc": 8, "Rok64fc": 16, "int": 4, "char": 1,
}


class Param:
    """One argument of a shape, as written with $s/$d placeholders."""

    def __init__(self, index, text):
        self.index = index
        self.text = text
        body = re.sub(r"\[[^\]]*\]", "", text)
        self.name = re.findall(r"[A-Za-z_]\w*", body)[-1]
        m = re.search(r"\[([^\]]*)\]", text)
        self.array = m.group(1) if m else None
        self.const = text.startswith("const ")
        head = body[: body.rindex(self.name)].strip()
        self.pointer = "*" in head
        self.pointer_array = self.pointer and self.array is not None
        self.base = re.sub(r"\bconst\b|\*", "", head).strip()  # $s, $d, Rok8u, int, RokiSize ...


def parse_params(args):
    return [Param(i, p.strip()) for i, p in enumerate(filter(None, (p.strip() for p in args.split(","))))]


class ContractError(Exception):
    pass


def step_name(pointer_name):
    """pSrc -> srcStep, pSrc1 -> src1Step, pSrcDst -> srcDstStep."""
    if not pointer_name.startswith("p") or len(pointer_name) < 2:
        return None
    return pointer_name[1].lower() + pointer_name[2:] + "Step"


def parse_fields(fields):
    out = {}
    for f in fields:
        k, eq, v = f.partition("=")
        out[k] = v if eq else True
    return out


class Role:
    def __init__(self, kind, param, **kw):
        self.kind, self.param = kind, param
        self.__dict__.update(kw)


def infer_roles(shape_name, params, lines):
    """Roles of every parameter: stated lines first, the rest inferred. The
    shape's `let` numbers follow its parameters as parameters of their own;
    returns (roles, (threads, accept, writes), skip, parameters with the lets)."""
    params = list(params)
    for line in lines:
        parts = line.split()
        if parts[0] == "let":
            params.append(Param(len(params), f"int {parts[1]}"))
    by_name = {p.name: p for p in params}
    stated, threads, skip, accept, writes = {}, (160, 80), False, [], []
    for line in lines:
        parts = line.split()
        key = parts[0]
        if key == "threads":
            threads = (0, 0) if parts[1] == "none" else (int(parts[1]), int(parts[2]))
            continue
        if key == "accept":
            accept += [int(v) for v in parts[1:]]
            continue
        if key == "writes":
            writes += [int(v) for v in parts[1:]]
            continue
        if key == "contract":
            skip = parts[1] == "skip"
            continue
        name = parts[1]
        if name not in by_name:
            raise ContractError(f"[{shape_name}]: '{key} {name}' names no argument")
        stated[name] = (key, parts[2:])
    if skip:  # nothing of the shape is driven, so its arguments need no roles
        return [], (threads, accept, writes), True, params
    roles = {}
    sizes = [p for p in params if p.base == "RokiSize" and not p.pointer]
    roi_default = None
    explicit_roi = [n for n, (k, _) in stated.items() if k == "roi"]
    free_sizes = [p for p in sizes if p.name not in stated]
    if explicit_roi:
        roi_default = explicit_roi[0]
    elif len(free_sizes) == 1:
        roi_default = free_sizes[0].name
    steps_used = set()

    def image_role(p, kind, fields):
        f = parse_fields(fields[1:]) if fields else {}
        direction = fields[0] if fields else None
        if direction is None:
            direction = "in" if p.const else ("inout" if "SrcDst" in p.name else "out")
        step = f.get("step", step_name(p.name))
        if step not in by_name:
            raise ContractError(f"[{shape_name}]: {p.name} has no step argument {step!r}")
        steps_used.add(step)
        elem = f.get("type") or ("s" if p.base == "$s" else "d" if p.base == "$d" else p.base)
        ch = f.get("ch") or (elem if elem in ("s", "d") else "1")
        roi = f.get("roi", roi_default)
        if roi is None:
            raise ContractError(f"[{shape_name}]: {p.name} needs roi=")
        border = f.get("border", "0,0,0,0").split(",")
        if len(border) != 4:
            raise ContractError(f"[{shape_name}]: {p.name} border needs four parts")
        count = f.get("n") if kind == "planes" else None
        if kind == "planes" and count is None:
            count = p.array
        return Role(kind, p, dir=direction, step=step, elem=elem, ch=ch, roi=roi, border=border, count=count,
                    fill=f.get("fill"))

    for p in params:
        if p.name in stated:
            key, fields = stated[p.name]
            if key in ("image", "planes"):
                roles[p.name] = image_role(p, key, fields)
            elif key == "tables":
                # Plane arrays of one row each, without a step.
                f = parse_fields(fields[1:])
                if p.array is None or "n" not in f:
                    raise ContractError(f"[{shape_name}]: tables {p.name} needs an [N] argument and n=")
                roles[p.name] = Role("planes", p, dir=fields[0], step=None, elem=f.get("type", p.base), ch="1",
                                     roi="{" + f["n"] + ",1}", border=["0"] * 4, count=p.array)
            elif key == "array":
                f = parse_fields(fields[1:])
                roles[p.name] = Role("array", p, dir=fields[0], count=f.get("n", p.array),
                                     elem=f.get("type", p.base), fill=f.get("fill"))
            elif key == "out":
                f = parse_fields(fields)
                roles[p.name] = Role("out", p, count=f.get("n", "1"), elem=f.get("type", p.base))
            elif key == "buffer":
                f = parse_fields(fields)
                roles[p.name] = Role("buffer", p, query=f["query"], optional="nullok" in f)
            elif key == "record":
                f = parse_fields(fields)
                roles[p.name] = Role("record", p, make=f["make"], free=f["free"], consumed="consumed" in f)
            elif key == "made":
                roles[p.name] = Role("made", p, free=parse_fields(fields)["free"])
            elif key == "let":
                roles[p.name] = Role("int", p, v=parse_fields(fields)["v"], bad=None)
            elif key == "roi":
                f = parse_fields(fields)
                roles[p.name] = Role("roi", p, bad=f.get("bad", "-6"), square="square" in f)
            elif key == "size":
                f = parse_fields(fields)
                roles[p.name] = Role("size", p, w=f["w"], h=f["h"], bad=f.get("bad"))
            elif key == "rect":
                f = parse_fields(fields)
                roles[p.name] = Role("rect", p, x=f["x"], y=f["y"], w=f["w"], h=f["h"], bad=f.get("bad"))
            elif key == "int":
                f = parse_fields(fields)
                roles[p.name] = Role("int", p, v=f["v"], bad=f.get("bad"))
            elif key == "real":
                roles[p.name] = Role("real", p, v=parse_fields(fields)["v"])
            elif key == "point":
                f = parse_fields(fields)
                roles[p.name] = Role("point", p, x=f["x"], y=f["y"])
            elif key == "value":
                roles[p.name] = Role("value", p, v=parse_fields(fields).get("v"))
            else:
                raise ContractError(f"[{shape_name}]: unknown role {key!r}")
            continue
        # Inferred roles.
        if p.pointer and step_name(p.name) in by_name:
            roles[p.name] = image_role(p, "planes" if p.pointer_array else "image", None)
        elif p.array is not None and not p.pointer:
            roles[p.name] = Role("array", p, dir="in" if p.const else "out", count=p.array, elem=p.base,
                                 fill=None)
        elif p.pointer and not p.const and p.array is None:
            roles[p.name] = Role("out", p, count="1", elem=p.base)
        elif p.name == roi_default:
            roles[p.name] = Role("roi", p, bad="-6", square=False)
        elif p.base == "int" and p.name == "scaleFactor":
            roles[p.name] = Role("int", p, v="rand(-4,12)", bad=None)
        elif p.base == "int" and p.name in ("roundMode", "hint"):
            roles[p.name] = Role("int", p, v="rand(0,2)", bad=None)
        elif p.base in ("$s", "$d") and not p.pointer:
            roles[p.name] = Role("value", p, v=None)
    for p in params:
        if p.name in roles:
            continue
        if p.base == "int" and p.name in steps_used:
            roles[p.name] = Role("step", p)
            continue
        raise ContractError(f"[{shape_name}]: say what argument {p.name!r} is (a contract line)")
    return [roles[p.name] for p in params], (threads, accept, writes), skip, params


def cpp_expr(expr, params, roles, wide=True):
    """An expression over arguments, as C++ over the call `c`: in 64 bits
    (wide), or with the arguments' own types (to pass them to a call)."""
    names = {p.name: p for p in params}

    def sub(m):
        word = m.group(0)
        if word == "rand":
            return "c.rand"
        if word in names:
            kind = roles[names[word].index].kind
            i = names[word].index
            if kind in ("roi", "size"):
                return f"c.wsize({i})" if wide else f"c.size({i})"
            if kind == "point":
                return f"c.wpoint({i})" if wide else f"c.point({i})"
            if kind == "rect":
                return f"c.wrect({i})" if wide else f"c.rect({i})"
            if kind in ("int", "step"):
                return f"c.wint({i})" if wide else f"c.integer({i})"
            if kind == "real":
                return f"c.real({i})"
            if kind == "record" and not wide:
                return f"reinterpret_cast<{pointer_type(names[word])}>(c.ptr({i}))"
            raise ContractError(f"expression {expr!r} uses {word!r}, which is not a number")
        return word

    out = re.sub(r"(?<![.\w])[A-Za-z_]\w*", sub, expr.replace("$nc", "c.nc"))
    if wide:  # shifts and conversions of drawn (or wild) arguments stay defined
        out = re.sub(r"(\w+)\s*<<\s*(c\.\w+\(\d+\))", r"c.shl(\1, \2)", out)
        out = _saturating_int(out)
    return out



def _saturating_int(expr):
    """int(...) of a real saturates (a wild real converts out of range);
    int(...) of whole numbers keeps wrapping as written (flag bits)."""
    out, i = [], 0
    for m in re.finditer(r"(?<![\w.:])int\(", expr):
        if m.start() < i:
            continue
        depth, j = 1, m.end()
        while j < len(expr) and depth:
            depth += {"(": 1, ")": -1}.get(expr[j], 0)
            j += 1
        inner = expr[m.end():j - 1]
        out.append(expr[i:m.start()])
        if "c.real(" in inner:
            out.append(f"(long long)rokc::number_as<int>({_saturating_int(inner)})")
        else:
            out.append(expr[m.start():j])
        i = j
    out.append(expr[i:])
    return "".join(out)

def dependencies(expr, params):
    names = {p.name for p in params}
    return {w for w in re.findall(r"(?<![.\w])[A-Za-z_]\w*", expr) if w in names}


def order(params, roles):
    """Scalars in an order where every expression's arguments come first."""
    exprs = {}
    for r in roles:
        parts = [getattr(r, a, None) for a in ("v", "w", "h", "x", "y")]
        exprs[r.param.name] = [e for e in parts if isinstance(e, str)]
    done, seq = set(), []
    pending = [r for r in roles if r.kind in ("roi", "size", "rect", "int", "real", "point", "value")]
    while pending:
        progressed = False
        for r in list(pending):
            deps = set().union(*[dependencies(e, params) for e in exprs[r.param.name]]) if exprs[r.param.name] else set()
            deps.discard(r.param.name)
            if deps <= done:
                seq.append(r)
                done.add(r.param.name)
                pending.remove(r)
                progressed = True
        if not progressed:
            raise ContractError("circular expressions: " + ", ".join(r.param.name for r in pending))
    return seq


def layout_channels(layout):
    """'C3' -> (3, 3); 'C3C1' -> (3, 1); 'AC4' -> (4, 4); 'C3C' -> (3, 3); 'P3C3' -> (1, 3)."""
    parts = re.findall(r"A?C\d?|P\d", layout or "C1")
    counts = []
    for part in parts:
        if part.startswith("P"):
            counts.append(1)
        elif part[-1].isdigit():
            counts.append(int(part[-1]))
        else:
            counts.append(counts[-1] if counts else 1)
    if not counts:
        counts = [1]
    return counts[0], counts[-1]


KIND_CPP = {"image": "Image", "planes": "Planes", "array": "Array", "out": "Out", "buffer": "Buffer", "roi": "Roi",
            "size": "Size", "int": "Int", "real": "Real", "point": "Point", "value": "Value", "step": "Step",
            "record": "Record", "made": "Made", "rect": "Rect"}


TYPE_CODES = {
    "Rok8u": "U8", "Rok8s": "S8", "Rok16u": "U16", "Rok16s": "S16", "Rok32u": "U32", "Rok32s": "S32",
    "Rok32f": "F32", "Rok64s": "S64", "Rok64f": "F64", "Rok16sc": "SC16", "Rok32sc": "SC32", "Rok32fc": "FC32",
    "Rok64fc": "FC64", "int": "S32", "char": "S8", "void": "None",
}


def type_code(ctype):
    """The runtime's element type: Type::S and Type::D stand for the export's source and destination types."""
    if ctype in ("s", "$s"):
        return "Type::S"
    if ctype in ("d", "$d"):
        return "Type::D"
    if ctype not in TYPE_CODES:
        raise ContractError(f"unknown element type {ctype!r}")
    return "Type::" + TYPE_CODES[ctype]


def _elem(elem):
    return type_code(elem)


def _lambda(expr, params, roles, ret="long long"):
    return f"+[]([[maybe_unused]] Call& c) -> {ret} {{ return {cpp_expr(expr, params, roles)}; }}"


def shape_descriptor(ident, params, roles, seq):
    """C++ for one shape: its arguments' roles and the order scalars are drawn in."""
    rows = []
    for r in roles:
        f = [f'.name = "{r.param.name}"', f".kind = Kind::{KIND_CPP[r.kind]}"]
        if r.kind in ("image", "planes"):
            f.append(f".dir = Dir::{ {'in': 'In', 'out': 'Out', 'inout': 'InOut'}[r.dir] }")
            f.append(f".elem = {_elem(r.elem)}")
            ch = {"s": "-1", "d": "-2"}.get(r.ch, r.ch)
            f.append(f".ch = {ch}")
            if r.step is not None:  # tables have none
                f.append(f".step = {next(p.index for p in params if p.name == r.step)}")
            roi = r.roi
            if roi.startswith("{"):
                w, h = roi[1:-1].split(",")
                f.append(f".size = +[]([[maybe_unused]] Call& c) -> WideSize {{ return WideSize{{{cpp_expr(w, params, roles)}, "
                         f"{cpp_expr(h, params, roles)}}}; }}")
            else:
                f.append(f".size = {_lambda(roi, params, roles, 'WideSize')}")
            if any(b != "0" for b in r.border):
                f.append(".border = {" + ", ".join(_lambda(b, params, roles) for b in r.border) + "}")
            if r.kind == "planes":
                f.append(f".count = {_lambda(r.count, params, roles)}")
            if getattr(r, "fill", None):
                lo, hi = r.fill.split("..")
                f.append(f".fill = Fill::Range, .lo = {lo}, .hi = {hi}")
        elif r.kind in ("array", "out"):
            f.append(f".dir = Dir::{'In' if getattr(r, 'dir', 'out') == 'in' else 'Out'}")
            f.append(f".elem = {_elem(r.elem)}")
            f.append(f".count = {_lambda(r.count, params, roles)}")
            fill = getattr(r, "fill", None)
            if fill == "rising":
                f.append(".fill = Fill::Rising")
            elif fill:
                lo, hi = fill.split("..")
                f.append(f".fill = Fill::Range, .lo = {lo}, .hi = {hi}")
        elif r.kind == "rect":
            f.append(f".size = +[]([[maybe_unused]] Call& c) -> WideSize {{ return WideSize{{{cpp_expr(r.w, params, roles)}, "
                     f"{cpp_expr(r.h, params, roles)}}}; }}")
            f.append(f".value = {_lambda(r.x, params, roles)}")
            f.append(f".value2 = {_lambda(r.y, params, roles)}")
            if r.bad and r.bad != "none":
                f.append(f".bad = {r.bad}")
        elif r.kind in ("roi", "size", "int"):
            if r.kind == "roi" and r.square:
                f.append(".square = true")
            if r.kind == "size":
                f.append(f".size = +[]([[maybe_unused]] Call& c) -> WideSize {{ return WideSize{{{cpp_expr(r.w, params, roles)}, "
                         f"{cpp_expr(r.h, params, roles)}}}; }}")
            if r.kind == "int":
                f.append(f".value = {_lambda(r.v, params, roles)}")
            bad = r.bad
            if bad and bad != "none":
                f.append(f".bad = {bad}")
        elif r.kind == "real":
            f.append(f".real = {_lambda(r.v, params, roles, 'double')}")
        elif r.kind == "buffer" and r.optional:
            f.append(".optional = true")
        elif r.kind == "record" and r.consumed:
            f.append(".consumed = true")
        elif r.kind == "value" and r.v:
            f.append(f".real = {_lambda(r.v, params, roles, 'double')}")
        elif r.kind == "point":
            f.append(f".value = {_lambda(r.x, params, roles)}")
            f.append(f".value2 = {_lambda(r.y, params, roles)}")
        rows.append("    {" + ", ".join(f) + "},\n")
    order_list = ", ".join(str(r.param.index) for r in seq) or ""
    return (f"const Arg {ident}_args[] = {{\n" + "".join(rows) + "};\n"
            f"const int {ident}_order[] = {{{order_list}{', ' if order_list else ''}-1}};\n")


def pointer_type(p):
    body = re.sub(r"\[[^\]]*\]", "", p.text)
    ctype = body[: body.rindex(p.name)].strip()
    return ctype + "*" if p.array is not None else ctype


def record_calls(role, params, roles, t, lay):
    """C++ for making and releasing the record of a `record` or `made` role."""
    ctype = pointer_type(role.param)
    if role.kind == "made":
        ctype = ctype[:-1].strip()  # the address's target: the record pointer
    rec_type = re.sub(r"^const\s+", "", ctype)

    def call(text):
        text = re.sub(r"\brec\b", "rec_", text.format(type=t, layout=lay))
        return cpp_expr(text, params, roles, wide=False)

    make = None
    if role.kind == "record":
        steps = " && ".join(f"({call(part)}) == 0" for part in role.make.split(";"))
        make = f"{rec_type} rec_ = nullptr; return ({steps}) ? static_cast<void*>(rec_) : nullptr;"
    release = f"{rec_type} rec_ = static_cast<{rec_type}>(p); {call(role.free)};"
    return make, release


def thunk_arg(p, role):
    """How the thunk passes argument p (substituted text) to the export."""
    i = p.index
    if p.pointer or p.array is not None:
        body = re.sub(r"\[[^\]]*\]", "", p.text)
        ctype = body[: body.rindex(p.name)].strip()
        dims = re.findall(r"\[([^\]]*)\]", p.text)
        if len(dims) > 1:
            # A two-dimensional array is passed as a pointer to its rows.
            ctype += " (*)" + "".join(f"[{d}]" for d in dims[1:])
        elif p.array is not None:
            ctype += "*"
        return f"reinterpret_cast<{ctype}>(c.ptr({i}))"
    if role.kind == "value":
        return f"c.sample<{p.base}>({i})"
    if p.base == "RokiSize":
        return f"c.size({i})"
    if p.base == "RokiPoint":
        return f"c.point({i})"
    if p.base == "RokiRect":
        return f"c.rect({i})"
    if p.base in ("Rok32f", "Rok64f", "float", "double"):
        return f"number_as<{p.base}>(c.real({i}))"
    return f"c.integer({i})"
