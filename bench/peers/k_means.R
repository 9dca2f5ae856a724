# Clusters ROWS x COLUMNS doubles of FILE, by rows, from the first CLUSTERS of them as centres. Prints the objective, then
# the seconds of each of FITS fits, one a line: Rscript k_means.R FILE ROWS COLUMNS CLUSTERS FITS
arguments <- commandArgs(trailingOnly = TRUE)
shape <- as.integer(arguments[-1])
x <- matrix(readBin(arguments[1], "double", shape[1] * shape[2]), shape[1], byrow = TRUE)
centres <- x[seq_len(shape[3]), ]

for (i in 0:shape[4]) {
    gc() # the garbage of the fit before shall not be collected in this one
    start <- Sys.time()
    fit <- kmeans(x, centres, iter.max = 1000, algorithm = "Hartigan-Wong")
    seconds <- as.numeric(difftime(Sys.time(), start, units = "secs"))
    stopifnot(fit$ifault == 0) # or it did not converge
    if (i > 0) cat(sprintf("%.6f\n", seconds)) # the first warms up
    else cat(sprintf("%.17g\n", fit$tot.withinss))
}
