package com.tessel.prb.live.known;

/** Walks a tree by recursion on its nodes. */
final class TreeTask implements Task {
    private static final int DEPTH = 13;

    private static final class Node {
        final Node left;
        final Node right;
        int weight;

        Node(int depth, int weight) {
            this.weight = weight;
            left = depth == 0 ? null : new Node(depth - 1, weight * 2 + 1);
            right = depth == 0 ? null : new Node(depth - 1, weight * 3 + 2);
        }
    }

    private final Node root = new Node(DEPTH, 1);

    @Override
    public String method() {
        return "walk";
    }

    @Override
    public long perform(long seed) {
        return walk(root, (int) seed);
    }

    private int walk(Node node, int carried) {
        int value = carried;
        for (int i = node.weight & 3; i < 6; i++) {
            value = value * 33 + node.weight;
            value ^= value >>> 5;
        }
        node.weight += value & 1;
        if (node.left == null) {
            return value;
        }
        int left = walk(node.left, value);
        return left + walk(node.right, value ^ left);
    }
}
