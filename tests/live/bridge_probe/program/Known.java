/** A class whose description the probe knows by heart. */
public class Known implements Runnable, java.io.Serializable {
    private static final long serialVersionUID = 1;
    static int shared;
    long own;
    String text;

    static int twice(int value) {
        return value * 2;
    }

    @Override
    public void run() {
        shared = twice(shared + 1);
    }
}
