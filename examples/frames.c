/* Frames through a FIFO: two frames, bytes that are none, and how they show. */
#include <quarnel/core/ipcComm.h>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

/* shown in ipcComm(3) */
/* Takes what the pipe holds, frame by frame. */
static void receiveAll(int pipe) {
    IpcChannel channel = {pipe, 0, 0, 0, NULL};
    int32_t length;

    while ((length = ipcRecv(&channel)) > 0) {
        if (ipcBadData(1)[0] != '\0')
            printf("skipped: %s\n", ipcBadData(43));
        printf("%d bytes: %s\n", length, channel.buffer);
    }
    if (length < 0)
        perror("ipcRecv");
    close(channel.fd);
    free(channel.buffer);
}

static int sendAll(const char *path) {
    IpcChannel channel = {open(path, O_WRONLY), 0, 0, 0, NULL};
    int sent = ipcSend(&channel, "hello") == 5 && /* as 005hello */
               write(channel.fd, "\1\2\3 noise\n", 10) == 10 &&
               ipcSend(&channel, "good bye") == 8;

    close(channel.fd);
    free(channel.buffer);
    return sent;
}
/* end */

int main(void) {
    int pipe;

    if (ipcInit("pipe", 0600) != 0) {
        perror("pipe");
        return EXIT_FAILURE;
    }
    pipe = open("pipe", O_RDONLY | O_NONBLOCK);
    if (!sendAll("pipe"))
        return EXIT_FAILURE;
    receiveAll(pipe);
    return unlink("pipe") == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
