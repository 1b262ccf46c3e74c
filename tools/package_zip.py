"""Folders as zip files that are the same bytes wherever and whenever they are made, and sums over files."""

import hashlib
import stat
import zipfile

# A zip cannot hold "no time". No file's own time would tell anything: all of them were just copied.
DATE = (1980, 1, 1, 0, 0, 0)
SUMS = "SHA256SUMS"


def files_below(folder):
    """Every file below `folder`, in an order that does not depend on the machine."""
    return sorted((path for path in folder.rglob("*") if path.is_file()),
                  key=lambda path: path.relative_to(folder).as_posix().encode())


def sum_of(content):
    return hashlib.sha256(content).hexdigest()


def write_sums(folder):
    """SHA256SUMS in `folder`, over all else in it; `sha256sum -c SHA256SUMS` reads it."""
    lines = [f"{sum_of(path.read_bytes())}  {path.relative_to(folder).as_posix()}\n"
             for path in files_below(folder) if path != folder / SUMS]
    (folder / SUMS).write_text("".join(lines), newline="\n")


def write_zip(folder, target, programs=()):
    """All files of `folder`, below one folder of its name. `programs`: those that Linux has to run."""
    with zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for path in files_below(folder):
            name = path.relative_to(folder).as_posix()
            entry = zipfile.ZipInfo(f"{folder.name}/{name}", DATE)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.create_system = 3  # Unix: the mode below counts
            entry.external_attr = (stat.S_IFREG | (0o755 if name in programs else 0o644)) << 16
            archive.writestr(entry, path.read_bytes())
