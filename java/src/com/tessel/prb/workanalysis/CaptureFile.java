package com.tessel.prb.workanalysis;

import java.io.File;
import java.io.IOException;
import java.io.RandomAccessFile;

/**
 * The capture file. Each write is whole records in one call, so that a reader of a file that was
 * cut off loses the last batch at most. After a failed write the file is cut back to what was
 * whole, the loss is counted and said once, and the next batch is tried as if nothing had been.
 *
 * <p>Used by one thread at a time.
 */
final class CaptureFile {
    private final String path;
    private final RandomAccessFile file;
    private final boolean created;
    private final boolean regular;
    private long bytesWritten;
    private int batchesLost;

    /** Opens the file; what it holds stays until {@link #begin}. */
    CaptureFile(String path) throws IOException {
        this.path = path;
        File name = new File(path);
        created = !name.exists();
        file = new RandomAccessFile(name, "rw");
        regular = name.isFile();
    }

    /** Drops what an earlier run left behind and writes the first record. */
    void begin(byte[] bytes, int size) throws IOException {
        if (regular) {
            file.setLength(0);
        }
        file.write(bytes, 0, size);
        bytesWritten = size;
    }

    /** Answers whether the bytes are in the file. */
    boolean write(byte[] bytes, int size) {
        try {
            file.write(bytes, 0, size);
            bytesWritten += size;
            return true;
        } catch (IOException e) {
            batchesLost++;
            cutBack();
            if (batchesLost == 1) {
                Messages.say("cannot write to " + reason(e, path)
                        + "; what is in the file stays, later polls are tried again");
            }
            return false;
        }
    }

    void close() {
        try {
            file.close();
        } catch (IOException e) {
            Messages.say("cannot close " + reason(e, path));
        }
    }

    /** Closes, and takes back a file that has nothing in it and was not there before. */
    void abandon() {
        close();
        if (created && regular && bytesWritten == 0) {
            new File(path).delete();
        }
    }

    String path() {
        return path;
    }

    long bytesWritten() {
        return bytesWritten;
    }

    int batchesLost() {
        return batchesLost;
    }

    /** What went wrong, with the path in it once. */
    static String reason(IOException e, String path) {
        String text = e.getMessage();
        text = text == null ? e.getClass().getName() : text;
        return text.startsWith(path) ? text : path + ": " + text;
    }

    private void cutBack() {
        if (!regular) {
            return;
        }
        try {
            file.setLength(bytesWritten);
            file.seek(bytesWritten);
        } catch (IOException e) {
            // The next batch then follows half a record: rather none at all.
            close();
        }
    }
}
