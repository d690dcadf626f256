package com.tessel.prb.workanalysis;

/** Without natives: the bridge binds what a class declares and nothing else. */
final class BackgroundThread {
    private BackgroundThread() {}
}
