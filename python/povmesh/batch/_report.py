"""The reports of a batch: CSV, JSON, and one HTML file that needs nothing else."""

import csv
import html
import io
import json
import os
from typing import Any, Dict, Iterable, List, Optional

from .._files import replace_file

COLUMNS = (
    "file",
    "status",
    "message",
    "seconds",
    "peak_bytes",
    "triangles_before",
    "triangles_after",
    "volume_before",
    "volume_after",
    "flaws_before",
    "flaws_after",
    "output",
    "bytes",
    "sha256",
    "library",
    "host",
)
_TONES = {"ok": "good", "flaws": "fair", "no result": "fair"}


def _flaws(check: Optional[Dict[str, Any]]) -> str:
    if not check or not isinstance(check.get("flaws"), dict):
        return ""
    # Corners and faces of what is counted as edges already.
    doubled = ("open_edge_corners", "non_manifold_faces")
    found = [(key, n) for key, n in check["flaws"].items() if n and key not in doubled]
    text = ", ".join(f"{n:,} {key.replace('_', ' ')}" for key, n in found)
    return text.replace("non manifold", "non-manifold")


def _cells(row: Dict[str, Any]) -> Dict[str, Any]:
    before, after = row.get("before") or {}, row.get("after") or {}
    outputs = row.get("outputs") or [{}]
    output = outputs[0]
    if len(outputs) > 1:  # their folder
        size = sum(one["bytes"] for one in outputs)
        output = {"path": os.path.dirname(output["path"]), "bytes": size}
    return {
        **{key: row.get(key) for key in COLUMNS},
        "triangles_before": before.get("triangles"),
        "triangles_after": after.get("triangles"),
        "volume_before": before.get("volume"),
        "volume_after": after.get("volume"),
        "flaws_before": _flaws(before),
        "flaws_after": _flaws(after),
        "output": output.get("path"),
        "bytes": output.get("bytes"),
    }


def csv_text(rows: Iterable[Dict[str, Any]]) -> str:
    """A line a model, with fixed columns."""
    text = io.StringIO()
    writer = csv.DictWriter(text, COLUMNS, lineterminator="\n")
    writer.writeheader()
    for row in rows:
        cells = _cells(row)
        # A spreadsheet would take a name that begins so for a formula.
        for key, value in cells.items():
            if isinstance(value, str) and value[:1] in ("=", "+", "-", "@", "\t", "\r"):
                cells[key] = "'" + value
        writer.writerow(cells)
    return text.getvalue()


def json_text(rows: Iterable[Dict[str, Any]], recipe: List[Dict[str, Any]]) -> str:
    """All rows, but for pictures, and the recipe."""
    plain = [{key: value for key, value in row.items() if key != "pictures"} for row in rows]
    return json.dumps({"recipe": recipe, "rows": plain}, indent=1) + "\n"


_POLICY = "default-src 'none'; img-src data:; style-src 'unsafe-inline'; script-src 'unsafe-inline'"
_STYLE = """
body{font:14px/1.4 system-ui,sans-serif;margin:2em;color:#222;background:#fff}
h1{font-size:1.4em}pre{background:#f4f4f4;padding:.6em;overflow:auto}
table{border-collapse:collapse;width:100%}
th,td{text-align:left;vertical-align:top;padding:.4em .6em;border-bottom:1px solid #ddd}
th{cursor:pointer;position:sticky;top:0;background:#fff;white-space:nowrap}
th[aria-sort=ascending]:after{content:" \\25B2"}th[aria-sort=descending]:after{content:" \\25BC"}
td.number{text-align:right;font-variant-numeric:tabular-nums}
img{width:160px;height:120px;background:#f4f4f4}
.status{padding:.1em .5em;border-radius:.6em;background:#f6c9c4;white-space:nowrap}
.good{background:#c8e6c4}.fair{background:#fbe5b0}
.totals span{margin-right:1em}#find{padding:.3em;width:20em;margin-right:1em}
td.file{word-break:break-all;min-width:10em}small{color:#666}
"""

_SCRIPT = """
const body=document.querySelector('tbody'),find=document.getElementById('find'),
      pick=document.getElementById('pick'),shown=document.getElementById('shown');
function filter(){const text=find.value.toLowerCase();let count=0;
  for(const row of body.rows){const is=row.textContent.toLowerCase().includes(text)&&
    (!pick.value||row.dataset.status===pick.value);row.hidden=!is;count+=is}
  shown.textContent=count+' shown'}
find.oninput=filter;pick.onchange=filter;filter();
for(const head of document.querySelectorAll('th[data-key]'))head.onclick=()=>{
  const up=head.getAttribute('aria-sort')!=='ascending',at=head.cellIndex;
  for(const other of head.parentNode.cells)other.removeAttribute('aria-sort');
  head.setAttribute('aria-sort',up?'ascending':'descending');
  const value=row=>row.cells[at].dataset.value??row.cells[at].textContent;
  const rows=[...body.rows].sort((a,b)=>{const x=value(a),y=value(b),n=x-y;
    return (x===''||y===''||isNaN(n)?x.localeCompare(y):n)*(up?1:-1)});
  body.append(...rows)}
"""


def _number_cell(value: Any, text: str) -> str:
    return f'<td class="number" data-value="{"" if value is None else value}">{text}</td>'


def _html_row(index: int, row: Dict[str, Any], folder: str) -> str:
    cells = _cells(row)
    status = str(row.get("status"))
    pictures = []
    for when, picture in zip(("before", "after"), row.get("pictures") or []):
        if picture:
            name = html.escape(f"{os.path.basename(row['file'])} {when}")
            pictures.append(f'<td><img alt="{name}" src="data:image/png;base64,{picture}"></td>')
        else:
            pictures.append("<td></td>")
    pictures += ["<td></td>"] * (2 - len(pictures))
    steps = [f"{step['operation']} {step['seconds']:.2f} s" for step in row.get("steps") or []]
    was = html.escape(cells["flaws_before"]) or ("none" if row.get("before") else "")
    left = html.escape(cells["flaws_after"]) or ("none" if row.get("after") else "")
    triangles = [cells["triangles_before"], cells["triangles_after"]]
    counts = " &rarr; ".join(f"{n:,}" for n in triangles if n is not None)
    seconds, peak = row.get("seconds"), row.get("peak_bytes")
    return (
        f'<tr data-status="{html.escape(status)}"><td class="number">{index + 1}</td>'
        + "".join(pictures)
        + f'<td class="file">{html.escape(os.path.relpath(row["file"], folder))}</td>'
        + f'<td><span class="status {_TONES.get(status, "bad")}">{html.escape(status)}</span></td>'
        + f"<td>{html.escape(str(row.get('message') or ''))}</td><td>{was}</td><td>{left}</td>"
        + f"<td>{html.escape(', '.join(steps))}</td>"
        + _number_cell(triangles[0], counts)
        + _number_cell(seconds, "" if seconds is None else f"{seconds:.2f}")
        + _number_cell(peak, "" if not peak else f"{peak / 1e6:,.0f}")
        + "</tr>"
    )


def html_text(rows: List[Dict[str, Any]], recipe: List[Dict[str, Any]], total: int) -> str:
    """A page with totals, and a table that sorts and filters."""
    counts: Dict[str, int] = {}
    for row in rows:
        counts[str(row.get("status"))] = counts.get(str(row.get("status")), 0) + 1
    totals = "".join(
        f'<span><span class="status {_TONES.get(status, "bad")}">{html.escape(status)}</span>'
        f" {count:,}</span>"
        for status, count in sorted(counts.items(), key=lambda item: -item[1])
    )
    options = "".join(f"<option>{html.escape(status)}</option>" for status in sorted(counts))
    heads = [
        "#",
        "",
        "",
        "file",
        "status",
        "message",
        "wrong before",
        "wrong after",
        "steps",
        "triangles",
        "seconds",
        "MB",
    ]
    head = "".join(f'<th data-key="{name}">{name}</th>' if name else "<th></th>" for name in heads)
    common = os.path.commonpath([os.path.dirname(row["file"]) for row in rows]) if rows else "."
    table = "\n".join(_html_row(index, row, common) for index, row in enumerate(rows))
    waiting = f"<p>{total - len(rows):,} more are not done yet.</p>" if total > len(rows) else ""
    return f"""<!doctype html>
<html lang="en"><head><meta charset="utf-8"><title>povmesh batch: {len(rows):,} models</title>
<meta http-equiv="Content-Security-Policy" content="{_POLICY}">
<style>{_STYLE}</style></head><body>
<h1>{len(rows):,} models</h1><p class="totals">{totals}</p>{waiting}
<details><summary>Recipe</summary><pre>{html.escape(json.dumps(recipe, indent=1))}</pre></details>
<p><input id="find" type="search" placeholder="find">
<select id="pick"><option value="">all</option>{options}</select>
<small id="shown"></small></p>
<table><thead><tr>{head}</tr></thead><tbody>
{table}
</tbody></table><script>{_SCRIPT}</script></body></html>
"""


def write_reports(
    folder: str,
    names: Iterable[str],
    rows: List[Dict[str, Any]],
    recipe: List[Dict[str, Any]],
    total: int,
) -> None:
    """Replaces the reports named, each whole."""
    for name in names:
        if name == "csv":
            text = csv_text(rows)
        elif name == "json":
            text = json_text(rows, recipe)
        else:
            text = html_text(rows, recipe, total)
        replace_file(os.path.join(folder, f"batch.{name}"), text.encode("utf-8", "surrogatepass"))
