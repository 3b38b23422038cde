"""Folders and files whose paths may be of any length."""

import errno
import os

FOLDER = os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC


def open_folder(path, create=False):
    """A descriptor to look things up by; a path beyond the system's limit is walked step by step."""
    try:
        if create:
            make_folder(path)
        return os.open(path, FOLDER)
    except OSError as error:
        if error.errno != errno.ENAMETOOLONG and not (create and error.errno == errno.ENOENT):
            raise
    fd = os.open("/", FOLDER)
    for name in filter(None, path.split("/")):
        try:
            if create:
                make_folder(name, fd)
            step = os.open(name, FOLDER, dir_fd=fd)
        finally:
            os.close(fd)
        fd = step
    return fd


def make_folder(name, dir_fd=None):
    try:
        os.mkdir(name, dir_fd=dir_fd)
    except FileExistsError:
        pass


def open_beside(folder_fd):
    """Makes open() take names in that folder."""
    return lambda name, flags: os.open(name, flags, 0o666, dir_fd=folder_fd)


def open_below(folder, name, mode="rb"):
    fd = open_folder(folder)
    try:
        return open(name, mode, opener=open_beside(fd))
    finally:
        os.close(fd)


def status_of(path):
    """As os.stat()."""
    try:
        return os.stat(path)
    except OSError as error:
        if error.errno != errno.ENAMETOOLONG:
            raise
    folder, _, name = path.rpartition("/")
    fd = open_folder(folder)
    try:
        return os.stat(name, dir_fd=fd)
    finally:
        os.close(fd)


def write_whole(path, lines):
    """Replaces the file at once, so that a reader or a killed run has the old one or the new one."""
    try:
        with open(f"{path}.new", "wb") as file:
            file.writelines(lines)
    except OSError as error:
        raise OSError(error.errno, error.strerror, path) from None
    os.replace(f"{path}.new", path)
