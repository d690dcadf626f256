/** Prints one line and ends with exit code 5, profiled or not. */
public final class Plain {
    private Plain() {}

    public static void main(String[] arguments) {
        System.out.println("plain output");
        System.exit(5);
    }
}
