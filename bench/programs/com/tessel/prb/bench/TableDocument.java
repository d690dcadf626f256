package com.tessel.prb.bench;

import java.io.IOException;
import java.io.PrintWriter;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.Random;

/** Writes an XSL-FO document of tables, the same for the same size. Arguments: file, tables. */
public final class TableDocument {
    private static final String[] WORDS = {
        "order", "invoice", "customer", "delivery", "warehouse", "payment", "return", "credit"
    };

    private TableDocument() {}

    public static void main(String[] args) throws IOException {
        Path file = Paths.get(args[0]);
        Random random = new Random(1);
        try (PrintWriter out = new PrintWriter(Files.newBufferedWriter(file))) {
            out.println("<fo:root xmlns:fo='http://www.w3.org/1999/XSL/Format'><fo:layout-master-set>"
                    + "<fo:simple-page-master master-name='p' page-height='29.7cm' page-width='21cm' margin='2cm'>"
                    + "<fo:region-body/></fo:simple-page-master></fo:layout-master-set>");
            for (int t = 0; t < Integer.parseInt(args[1]); t++) {
                out.println("<fo:page-sequence master-reference='p'><fo:flow flow-name='xsl-region-body'>"
                        + "<fo:table table-layout='fixed' width='100%'><fo:table-body>");
                for (int row = 0; row < 60; row++) {
                    out.print("<fo:table-row>");
                    for (int cell = 0; cell < 5; cell++) {
                        out.print("<fo:table-cell border='0.2pt solid black'><fo:block>"
                                + WORDS[random.nextInt(WORDS.length)] + " " + random.nextInt(100000)
                                + "</fo:block></fo:table-cell>");
                    }
                    out.println("</fo:table-row>");
                }
                out.println("</fo:table-body></fo:table></fo:flow></fo:page-sequence>");
            }
            out.println("</fo:root>");
        }
    }
}
