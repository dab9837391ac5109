/* The physical floor of a discovery of a snapshot: what any program that learns everything a snapshot
 * holds must at least do. Lists every directory once and opens and reads every regular file once;
 * symbolic links are neither followed nor read. Prints the directories, files and bytes it saw.
 *
 *     floor DIR
 */
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

static long dirs, files, bytes;

static void walk(int dirfd) {
    DIR* d = fdopendir(dirfd);
    struct dirent* e;
    static char buffer[1 << 16];
    if (d == NULL) {
        close(dirfd);
        return;
    }
    ++dirs;
    while ((e = readdir(d)) != NULL) {
        if (e->d_name[0] == '.' && (!e->d_name[1] || (e->d_name[1] == '.' && !e->d_name[2])))
            continue;
        int fd =
            e->d_type == DT_DIR || e->d_type == DT_REG
                ? openat(dirfd, e->d_name, O_RDONLY | O_NOFOLLOW | (e->d_type == DT_DIR ? O_DIRECTORY : 0))
                : -1;
        if (fd < 0)
            continue;
        if (e->d_type == DT_DIR) {
            walk(fd);
            continue;
        }
        ++files;
        for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;)
            bytes += n;
        close(fd);
    }
    closedir(d);
}

int main(int argc, char** argv) {
    int fd = argc == 2 ? open(argv[1], O_RDONLY | O_DIRECTORY) : -1;
    if (fd < 0) {
        fprintf(stderr, "usage: floor DIR (a readable directory)\n");
        return 2;
    }
    walk(fd);
    printf("%ld directories, %ld files, %ld bytes\n", dirs, files, bytes);
    return 0;
}
