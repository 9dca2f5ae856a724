# Prints the seconds that each of FITS weighted fits takes, one a line: Rscript lm_wfit.R ROWS COLUMNS FITS
arguments <- as.integer(commandArgs(trailingOnly = TRUE))
n <- arguments[1]
p <- arguments[2]
set.seed(20261121)
design <- cbind(1, matrix(rnorm(n * p, 10, 2), n))
coefficients <- c(1, seq_len(p) / p)
y <- drop(design %*% coefficients) + rnorm(n)
weights <- runif(n, 0.5, 1.5)

for (i in 0:arguments[3]) {
    gc() # the garbage of the fit before shall not be collected in this one
    start <- Sys.time()
    fit <- lm.wfit(design, y, weights)
    seconds <- as.numeric(difftime(Sys.time(), start, units = "secs"))
    stopifnot(abs(fit$coefficients[-1] - coefficients[-1]) < 0.02)
    if (i > 0) cat(sprintf("%.6f\n", seconds)) # the first warms up
}
