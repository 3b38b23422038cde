// Where an output goes, and whether two names mean one file.
#pragma once

#include <climits>

#include <sys/types.h>

struct output_place {
  int fd = -1;              // descriptor of this process that the name stands for, or -1
  char name[PATH_MAX] = {}; // else the name behind all links
};

// Finds the place of a path of the command line; "-" is standard output. Nothing is opened. Returns
// 0 or an errno.
int find_place(const char *path, output_place &place);

// The directory of a name, "." when it tells none. Returns false when it does not fit.
bool directory_of(const char *name, char (&directory)[PATH_MAX]);

// What tells a file from all others: what is there, or the directory and the name of what is to be.
struct file_id {
  bool is_known = false; // false is the same as nothing else; so is a device, which many may share
  dev_t device = 0;
  ino_t inode = 0;
  const char *name = ""; // in the directory, as long as nothing is there
};

file_id id_of(int fd);
file_id id_of(const char *path);
file_id id_of(const output_place &place);

bool is_same_file(const file_id &a, const file_id &b);
