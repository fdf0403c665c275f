#!/usr/bin/env python3
"""Generates the export declarations (include/roki.h, and the types alone for
the library's sources in src/frame/generated/roki_types.h), the extern "C"
entry points, the linker export list, the contract suite's tables
(tests/generated/contract_*.cpp) and the rok tool's dispatch table
(tools/rok/generated/dispatch.inc, see rok_dispatch.py) from
api/manifest/*.txt and api/shapes/*.txt.

Usage: generate.py [--check]   (--check: fail if any generated file is stale)

Manifest line (columns separated by '|'):
    Family | types | layouts | forms | shape | implementation
A list column holds space-separated tokens; '-' stands for the empty token.
The export name is roki<Family>_<type>_<layout><form>, empty parts dropped;
a Family that starts with 'roki' is a full name pattern with {type},
{layout} and {form} placeholders instead. Lines starting with '##' are
documentation copied into the header above the next entry; 'include <path>'
names an internal header that the entry points of this manifest need.

Shapes (api/shapes/*.txt, each shape defined once) have section headers
[shape form] where form may be '*' for any form.
Keys: ret (default RokStatus), args, call (default $impl($args)),
null (status expected when a pointer argument is null; 'none' skips the
contract suite), and the argument roles of the contract suite (see
api/contract.py: image, planes, array, out, buffer, roi, size, rect, int, real,
point, value, threads, contract).
Placeholders: $s source type, $d destination type, $L layout enumerator,
$nc channels a constant array holds, $impl, $args (argument names).
"""
import re
import sys
from pathlib import Path

import contract
import rok_dispatch

ROOT = Path(__file__).resolve().parent.parent
API = ROOT / "api"

TYPES = {
    "8u": "Rok8u", "8s": "Rok8s", "16u": "Rok16u", "16s": "Rok16s",
    "32u": "Rok32u", "32s": "Rok32s", "32f": "Rok32f", "64s": "Rok64s",
    "64f": "Rok64f", "16sc": "Rok16sc", "32sc": "Rok32sc", "32fc": "Rok32fc",
    "64fc": "Rok64fc", "1u": "Rok8u", "24u": "Rok8u",
}
CONST_CHANNELS = {"C1": 1, "C2": 2, "C3": 3, "C4": 4, "AC4": 3, "C3A0C4": 3}


def split_type(token):
    """'8u' -> (Rok8u, Rok8u); '8u16s' -> (Rok8u, Rok16s)."""
    if not token:
        return "void", "void"
    if token in TYPES:
        return TYPES[token], TYPES[token]
    for i in range(1, len(token)):
        a, b = token[:i], token[i:]
        if a in TYPES and b in TYPES:
            return TYPES[a], TYPES[b]
    raise SystemExit(f"unknown type token {token!r}")


def load_shapes():
    shapes = {}
    for path in sorted((API / "shapes").glob("*.txt")):
        cur = None
        for n, raw in enumerate(path.read_text().splitlines(), 1):
            line = raw.strip()
            if not line or line.startswith("#"):
                continue
            m = re.fullmatch(r"\[(\S+)\s+(\S+)\]", line)
            if m:
                key = (m.group(1), m.group(2))
                if key in shapes:
                    raise SystemExit(f"{path.name}:{n}: shape [{key[0]} {key[1]}] is defined twice")
                cur = shapes[key] = {"key": key}
                continue
            key, _, value = line.partition(" ")
            if cur is not None and key in contract.ROLE_KEYS:
                cur.setdefault("roles", []).append(line)
                continue
            if cur is None or key not in ("ret", "args", "call", "null"):
                raise SystemExit(f"{path.name}:{n}: cannot read {raw!r}")
            cur[key] = value.strip()
    return shapes


def arg_names(args):
    names = []
    for part in filter(None, (p.strip() for p in args.split(","))):
        part = re.sub(r"\[[^\]]*\]", "", part)
        names.append(re.findall(r"[A-Za-z_]\w*", part)[-1])
    return names


class Export:
    def __init__(self, name, ret, args, call, null, doc, family, shape, types, layout, nc):
        self.name, self.ret, self.args, self.call = name, ret, args, call
        self.null, self.doc, self.family = null, doc, family
        self.shape, self.types, self.layout, self.nc = shape, types, layout, nc


def expand(path, shapes):
    exports, includes, doc = [], [], []
    for n, raw in enumerate(path.read_text().splitlines(), 1):
        line = raw.strip()
        if line.startswith("##"):
            doc.append(line[2:].strip())
            continue
        if not line or line.startswith("#"):
            continue
        if line.startswith("include "):
            includes.append(line.split(None, 1)[1])
            continue
        cols = [c.strip() for c in line.split("|")]
        if len(cols) != 6:
            raise SystemExit(f"{path.name}:{n}: expected 6 columns")
        family, types, layouts, forms, shape, impl = cols
        lists = [[("" if t == "-" else t) for t in c.split()] for c in (types, layouts, forms)]
        first = True
        for t in lists[0]:
            for lay in lists[1]:
                for form in lists[2]:
                    if family.startswith("roki"):
                        name = family.format(type=t, layout=lay, form=form)
                    else:
                        name = "roki" + family + (f"_{t}" if t else "") + (f"_{lay}{form}" if lay or form else "")
                    sh = shapes.get((shape, form or "-")) or shapes.get((shape, "*"))
                    if sh is None:
                        raise SystemExit(f"{path.name}:{n}: no shape [{shape} {form or '-'}]")
                    s, d = split_type(t)
                    subst = {
                        "$impl": impl, "$s": s, "$d": d,
                        "$L": f"rok::Layout::{lay}" if lay else "rok::Layout::C1",
                        "$nc": str(CONST_CHANNELS.get(lay, 1)),
                    }

                    def fill(text):
                        for k in sorted(subst, key=len, reverse=True):
                            text = text.replace(k, subst[k])
                        return text

                    args = fill(sh["args"])
                    subst["$args"] = ", ".join(arg_names(args))
                    call = fill(sh.get("call", "$impl($args)"))
                    null = sh.get("null", "-8")
                    exports.append(Export(name, fill(sh.get("ret", "RokStatus")), args, call, null,
                                          doc if first else [], family, sh, (t, s, d), lay, subst["$nc"]))
                    exports[-1].shape_name = shape
                    first = False
        doc = []
    return exports, includes


def status_source(types):
    """rokGetStatusString and the table of codes it knows, from the status
    enumeration of api/roki_types.h, whose comment on each code is its message."""
    codes = re.findall(r"^    (rokStatus\w+) = (-?\d+),? /\* (.*) \*/$", types, flags=re.M)
    if not codes:
        raise SystemExit("api/roki_types.h: no status codes with messages")
    cases = "".join(f'        case {name}: return "{name}: {msg}";\n' for name, _, msg in codes)
    table = "".join(f'    {{{name}, "{name}"}},\n' for name, _, _ in codes)
    return ("// Generated by api/generate.py from api/roki_types.h; do not edit.\n"
            '#include "core/core.h"\n#include "core/status_text.h"\n\n'
            "namespace rok::core {\n\nconst StatusName status_names[] = {\n" + table + "};\n"
            "const int status_count = int(sizeof status_names / sizeof status_names[0]);\n\n}  // namespace rok::core\n\n"
            'extern "C" ROKI_API const char* rokGetStatusString(RokStatus status) {\n    switch (status) {\n' + cases +
            '        default: return "rokStatusUnknown: not a status code of this library";\n    }\n}\n')


def contract_source(path, exports):
    """The contract suite's table for one manifest: each shape's argument roles
    once, and per export a thunk that passes the suite's values to it."""
    out = ["// Generated by api/generate.py from api/manifest/" + path.name + "; do not edit.\n",
           '#include "contract.h"\n#include "roki.h"\n\nnamespace {\n\nusing namespace rokc;\n\n']
    shapes_done, rows = {}, []
    for e in exports:
        key = e.shape["key"]
        ident = "shape_" + key[0] + "_" + ("any" if key[1] == "*" else re.sub(r"\W", "_", key[1]))
        if e.ret != "RokStatus" or e.null == "none":
            rows.append(f'    {{.name = "{e.name}"}},\n')
            continue
        try:
            params = contract.parse_params(e.shape["args"])
            roles, (threads, accept, writes), skip, variables = contract.infer_roles(
                f"{key[0]} {key[1]}", params, e.shape.get("roles", []))
        except contract.ContractError as err:
            raise SystemExit(f"api/shapes: {err}")
        if skip:
            rows.append(f'    {{.name = "{e.name}"}},\n')
            continue
        if ident not in shapes_done:
            shapes_done[ident] = True
            out.append(contract.shape_descriptor(ident, variables, roles, contract.order(variables, roles)))
        concrete = contract.parse_params(e.args)
        passed = ", ".join(contract.thunk_arg(p, roles[p.index]) for p in concrete)
        out.append(f"int call_{e.name}(Call& c) {{ return {e.name}({passed}); }}\n")
        extra = ""
        t, lay = e.types[0], e.layout
        # Buffer before record: the order of the fields in rokc::Export.
        for r in sorted(roles, key=lambda r: r.kind != "buffer"):
            if r.kind == "buffer":
                query = contract.cpp_expr(r.query.format(type=t, layout=lay), variables, roles, wide=False)
                out.append(f"int buffer_{e.name}(Call& c) {{ int size = -1; "
                           f"return {query} == 0 ? size : -1; }}\n")
                extra += f", .buffer = buffer_{e.name}"
            if r.kind in ("record", "made"):
                make, release = contract.record_calls(r, variables, roles, t, lay)
                if make:
                    out.append(f"void* make_{e.name}([[maybe_unused]] Call& c) {{ {make} }}\n")
                    extra += f", .make = make_{e.name}"
                out.append(f"void release_{e.name}(void* p) {{ [[maybe_unused]] Call c; {release} }}\n")
                extra += f", .release = release_{e.name}"
        ch_s, ch_d = contract.layout_channels(e.layout)
        sb = contract.type_code(e.types[1])
        db = contract.type_code(e.types[2])
        rows.append(f'    {{.name = "{e.name}", .call = call_{e.name}, .args = {ident}_args, '
                    f".nargs = {len(params)}, .order = {ident}_order, .sType = {sb}, .dType = {db}, "
                    f".chS = {ch_s}, .chD = {ch_d}, .nc = {e.nc}, .nullStatus = {e.null}, "
                    f".nvars = {len(variables)}, .threadsW = {threads[0]}, .threadsH = {threads[1]}{extra}"
                    + (f", .accept = {{{', '.join(map(str, accept))}}}" if accept else "")
                    + (f", .writes = {{{', '.join(map(str, writes))}}}" if writes else "") + "},\n")
    out.append("\nconst Export exports[] = {\n" + "".join(rows) + "};\n\n"
               "const bool added = add(exports, sizeof exports / sizeof exports[0]);\n\n}  // namespace\n")
    return "".join(out)


def render(manifests, shapes):
    prologue = (API / "roki_prologue.h").read_text()
    types = (API / "roki_types.h").read_text()
    header = [prologue.rstrip() + "\n\n", types.rstrip() + "\n\n",
              '#ifdef __cplusplus\nextern "C" {\n#endif\n']
    all_exports, outputs = [], {}
    for path in manifests:
        exports, includes = expand(path, shapes)
        for e in exports:
            e.manifest = path.stem
        all_exports += exports
        header.append(f"\n/* ---- {path.stem} ---- */\n")
        body = ["// Generated by api/generate.py from api/manifest/" + path.name + "; do not edit.\n",
                '#include "frame/generated/roki_types.h"\n']
        body += [f'#include "{inc}"\n' for inc in includes]
        body.append("\n")
        for e in exports:
            if e.doc:
                header.append("\n" + "".join(f"/* {d} */\n" if d else "/*\n */\n" for d in e.doc))
            header.append(f"ROKI_API {e.ret} {e.name}({e.args or 'void'});\n")
            body.append(f'extern "C" ROKI_API {e.ret} {e.name}({e.args}) {{ return {e.call}; }}\n')
        outputs[ROOT / "src/frame/generated" / f"entries_{path.stem}.cpp"] = "".join(body)
    header.append((API / "roki_epilogue.h").read_text())
    outputs[ROOT / "include/roki.h"] = "".join(header)
    # The library's own sources include only the types, so that a change to
    # one manifest rebuilds that manifest's entry points and nothing else.
    outputs[ROOT / "src/frame/generated/status_text.cpp"] = status_source(types)
    outputs[ROOT / "src/frame/generated/roki_types.h"] = (
        "/* Generated by api/generate.py from api/roki_types.h; do not edit. */\n" + types)

    names = [e.name for e in all_exports]
    dupes = sorted({n for n in names if names.count(n) > 1})
    if dupes:
        raise SystemExit("duplicate exports: " + ", ".join(dupes))
    core = [l.strip() for l in (API / "core_exports.txt").read_text().splitlines()
            if l.strip() and not l.startswith("#")]
    outputs[ROOT / "api/generated/rokip.map"] = (
        "/* Generated by api/generate.py; do not edit. */\n{\n  global:\n"
        + "".join(f"    {n};\n" for n in core + names) + "  local:\n    *;\n};\n")
    outputs[ROOT / "tools/rok/generated/dispatch.inc"] = rok_dispatch.source(all_exports)
    for path in manifests:
        stem_exports = [e for e in all_exports if e.manifest == path.stem]
        outputs[ROOT / "tests/generated" / f"contract_{path.stem}.cpp"] = contract_source(path, stem_exports)
    return outputs


def main():
    check = "--check" in sys.argv[1:]
    manifests = sorted((API / "manifest").glob("*.txt"))
    outputs = render(manifests, load_shapes())
    stale = []
    generated_dir = ROOT / "src/frame/generated"
    olds = list(generated_dir.glob("entries_*.cpp")) + list((ROOT / "tests/generated").glob("*.cpp"))
    for old in olds:
        if old not in outputs:
            stale.append(old)
            if not check:
                old.unlink()
    for path, text in outputs.items():
        if not path.exists() or path.read_text() != text:
            stale.append(path)
            if not check:
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
    if check and stale:
        print("stale generated files (run api/generate.py):")
        for p in stale:
            print("  " + str(p.relative_to(ROOT)))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
